#pragma once
// The "[Content_Types].xml" item: Default entries by extension, Override entries by part name.
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "opc/model/content_type.h"
#include "opc/model/part_name.h"
#include "opc/streams.h"

namespace opc::model::detail {

inline constexpr char kContentTypesItemName[] = "[Content_Types].xml";
// Bounds what a hostile package can make us parse: about 2,000 bytes per part for a million parts.
inline constexpr std::uint64_t kMaxContentTypesBytes = 1ull << 31;

class ContentTypeMap {
 public:
  // Throws opc::Exception for malformed XML, an unknown element or attribute, an invalid extension,
  // part name or content type, or a repeated extension (ignoring case) or part name (equivalence).
  // `what` names the item in messages; more than `maxBytes` of XML is an error too.
  [[nodiscard]] static ContentTypeMap read(InputStream& stream, const std::string& what,
                                           std::uint64_t maxBytes = kMaxContentTypesBytes);

  // The Override for the part, else the Default for its extension (ignoring case).
  [[nodiscard]] const ContentType* lookup(const PartName& name) const { return lookup(name, PartNameKeyHash{}(name)); }
  // The same, given PartNameKeyHash of the name.
  [[nodiscard]] const ContentType* lookup(const PartName& name, std::size_t hash) const;

 private:
  // Keys compare ignoring ASCII case.
  using Map = std::unordered_map<std::string, ContentType, PartNameKeyHash, PartNameKeyEqual>;
  Map defaults_;   // extension, in UTF-8 (a part's extension is ASCII, so one that is not never matches)
  Map overrides_;  // part name
};

// The document for these parts (relationships parts included): for each extension, the content type
// most of its parts have becomes the Default (the first seen wins a tie); every other part, and every
// part without an extension, gets an Override. Defaults and Overrides follow the parts' order.
[[nodiscard]] std::string buildContentTypesXml(const std::vector<std::pair<const PartName*, const ContentType*>>& parts);

}  // namespace opc::model::detail
