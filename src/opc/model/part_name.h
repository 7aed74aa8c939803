#pragma once
// Part names: the grammar and equivalence of the packaging conventions, and their ZIP item names.
#include <cstddef>
#include <string>
#include <string_view>

#include "foundation/ustring.h"
#include "opc/model/uri.h"

namespace opc::model {

// A valid part name, held in its URI form ("/a/%D1%86.xml"): non-ASCII characters given on
// construction are percent-encoded as UTF-8, percent-encodings use upper-case hex digits.
//
// Rules checked on construction (opc::Exception naming the text and the rule otherwise): not empty;
// starts with "/"; no empty segment and no trailing "/"; only RFC 3986 pchar characters; no
// percent-encoded "/", "\" or unreserved character; no segment that ends with "." or holds only dots.
// Rules between names (a name that is a prefix segment of another, equivalent names) are the
// package's to check.
//
// Equivalence (operator==, hash) compares as case-insensitive ASCII: "/A.xml" and "/a.XML" are the
// same part.
class PartName {
 public:
  explicit PartName(const ustring& name);

  // The name a ZIP item of the package has, or throws opc::Exception. ZIP item names are the part
  // name without its leading "/", in ASCII; a name stored by another tool in UTF-8 (with or without
  // the language-encoding flag) maps through its IRI: non-ASCII characters are percent-encoded.
  [[nodiscard]] static PartName fromZipItemName(std::string_view itemName);
  [[nodiscard]] std::string getZipItemName() const;

  [[nodiscard]] const ustring& getName() const { return name_; }
  [[nodiscard]] URI getURI() const;
  // The text after the last "." of the last segment; "" when there is none.
  [[nodiscard]] ustring getExtension() const;
  // "/a/_rels/b.xml.rels" and "/_rels/.rels" are relationships part names.
  [[nodiscard]] bool isRelationshipsPartName() const;

  // ASCII-lower-cased name: equal keys <=> equivalent names.
  [[nodiscard]] const std::u16string& getKey() const { return key_; }
  [[nodiscard]] bool operator==(const PartName& other) const { return key_ == other.key_; }
  [[nodiscard]] bool operator<(const PartName& other) const { return key_ < other.key_; }

  // Turns any text into the text of one valid segment's worth of characters: every character that
  // is not unreserved or a safe sub-delimiter is percent-encoded as UTF-8 (space, "#", "%", "?", "/",
  // "\", and everything outside ASCII). A segment of dots or one that ends in "." stays invalid
  // (the caller decides what such a name means). decodeSegment is its inverse; it throws
  // opc::Exception for a percent-encoding that is not UTF-8.
  [[nodiscard]] static ustring encodeSegment(ustring_view text);
  [[nodiscard]] static ustring decodeSegment(ustring_view text);

 private:
  ustring name_;
  ustring key_;
};

struct PartNameHash {
  std::size_t operator()(const PartName& name) const noexcept {
    return std::hash<std::u16string>{}(name.getKey());
  }
};

}  // namespace opc::model
