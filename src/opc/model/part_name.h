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
// Equivalence (operator==, PartNameKeyHash) compares as case-insensitive ASCII: "/A.xml" and "/a.XML"
// are the same part. The URI form is ASCII, so it is held as one byte a character, and no
// lower-cased copy is kept: a package holds tens of thousands of names.
class PartName {
 public:
  explicit PartName(const ustring& name);

  // The name a ZIP item of the package has, or throws opc::Exception. ZIP item names are the part
  // name without its leading "/", in ASCII; a name stored by another tool in UTF-8 (with or without
  // the language-encoding flag) maps through its IRI: non-ASCII characters are percent-encoded.
  [[nodiscard]] static PartName fromZipItemName(std::string_view itemName);
  [[nodiscard]] std::string getZipItemName() const;

  // The URI form (ASCII). The view lives as long as this name.
  [[nodiscard]] std::string_view text() const { return name_; }
  // The URI form widened to UTF-16, made on each call: for messages and the host, not for lookups.
  [[nodiscard]] ustring getName() const { return ustring(name_.begin(), name_.end()); }
  [[nodiscard]] URI getURI() const;
  // The text after the last "." of the last segment; "" when there is none. The view lives as long
  // as this name.
  [[nodiscard]] std::string_view extensionView() const;
  // "/a/_rels/b.xml.rels" and "/_rels/.rels" are relationships part names.
  [[nodiscard]] bool isRelationshipsPartName() const;

  [[nodiscard]] bool operator==(const PartName& other) const;

  // A segment's text with its percent-encodings decoded (characters outside ASCII pass as they are).
  // Throws opc::Exception for a percent-encoding that is not UTF-8.
  [[nodiscard]] static ustring decodeSegment(ustring_view text);

 private:
  struct Checked {};
  PartName(std::string uriForm, Checked);
  std::string name_;
};

// Hash and equality of names as keys (case-insensitive ASCII), over views of the ASCII text
// (PartName::text()) so that maps can be keyed by views of names they do not own and looked up
// without allocating. Bytes above 0x7F (a UTF-8 extension in [Content_Types].xml) are hashed and
// compared as they are. A PartNameKey carries a hash made once, for names looked up several times.
struct PartNameKey {
  std::string_view text;
  std::size_t hash;  // PartNameKeyHash of text
};
struct PartNameKeyHash {
  using is_transparent = void;
  // Eight bytes at a time, letters folded within the word: opening hashes every name more than once.
  // Not noexcept, so that std::unordered_map keeps each node's hash rather than hashing its key again
  // while walking a bucket.
  [[nodiscard]] std::size_t operator()(std::string_view name) const;
  [[nodiscard]] std::size_t operator()(const PartNameKey& key) const noexcept { return key.hash; }
  [[nodiscard]] std::size_t operator()(const PartName& name) const { return (*this)(name.text()); }
};
struct PartNameKeyEqual {
  using is_transparent = void;
  [[nodiscard]] bool operator()(std::string_view a, std::string_view b) const noexcept;
  [[nodiscard]] bool operator()(const PartNameKey& a, std::string_view b) const noexcept { return (*this)(a.text, b); }
  [[nodiscard]] bool operator()(std::string_view a, const PartNameKey& b) const noexcept { return (*this)(a, b.text); }
};

}  // namespace opc::model
