#pragma once
// Writing and reading the small XML parts the package model owns ([Content_Types].xml, relationships
// parts). Writing goes through Xerces' formatter (escaping, UTF-8); reading through the hardened
// parser of opc/xml.
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "foundation/ustring.h"
#include "opc/streams.h"

namespace opc::detail {

// Builds a UTF-8 document in memory: an XML declaration (standalone), then elements. Attribute
// values are escaped by Xerces; element and attribute names are the caller's constants, written as
// they are. Throws opc::Exception for a value XML cannot carry.
class XmlTextWriter {
 public:
  XmlTextWriter();
  ~XmlTextWriter();
  XmlTextWriter(const XmlTextWriter&) = delete;
  XmlTextWriter& operator=(const XmlTextWriter&) = delete;

  using Attributes = std::vector<std::pair<ustring_view, ustring_view>>;
  void startElement(ustring_view name, const Attributes& attributes);
  void emptyElement(ustring_view name, const Attributes& attributes);
  void endElement(ustring_view name);
  [[nodiscard]] std::string take();

 private:
  void tag(ustring_view name, const Attributes& attributes, bool empty);
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// One element of a parsed document: its namespace, local name, attributes (unqualified ones only;
// qualified ones are reported so the caller can refuse them) and child elements. Text content is
// checked to be white space only by the reader.
struct XmlElement {
  ustring ns;
  ustring localName;
  std::vector<std::pair<ustring, ustring>> attributes;  // unqualified: name, value
  std::vector<ustring> qualifiedAttributes;             // names of namespaced attributes (not xmlns)
  std::vector<XmlElement> children;
  [[nodiscard]] const ustring* attribute(ustring_view name) const;
  // Throw opc::Exception, `what` naming the part: an attribute not in `allowed` (or any qualified
  // one); the attribute `name` missing.
  void requireOnly(std::initializer_list<std::u16string_view> allowed, const std::string& what) const;
  [[nodiscard]] const ustring& required(ustring_view name, const std::string& what) const;
};

// Parses a whole document (well formed, no DOCTYPE, bounded in size) whose root must be in `ns`,
// then hands over the document element (without its children) and each of its child elements in
// turn, so that no second copy of a large document is ever held. Non-white-space text anywhere is
// refused. `what` names the part in messages.
void readXmlDocument(InputStream& stream, const ustring& ns, const std::string& what, std::uint64_t maxBytes,
                     const std::function<void(const XmlElement& root)>& onRoot,
                     const std::function<void(const XmlElement& child)>& onChild);

}  // namespace opc::detail
