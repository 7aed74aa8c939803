#pragma once
// URI references as the package model uses them: part names, relationship targets, the package root.
#include <compare>
#include <string>

#include "foundation/ustring.h"

namespace opc::model {

// An RFC 3986 URI reference held in its ASCII form: characters outside ASCII given on construction
// (an IRI) are percent-encoded as UTF-8, and the hex digits of every percent-encoding are upper case,
// so two spellings of one reference compare equal. Nothing else is normalised.
class URI {
 public:
  URI() = default;  // the empty reference
  // Throws opc::Exception for text that is no URI reference: control characters, space, '"', '<',
  // '>', '\', '^', '`', '{', '|', '}', a '%' not followed by two hex digits, or lone surrogates.
  explicit URI(const ustring& text);

  [[nodiscard]] const ustring& toString() const { return text_; }
  [[nodiscard]] bool empty() const { return text_.empty(); }
  // Has a scheme ("http:", "file:").
  [[nodiscard]] bool isAbsolute() const;
  // The path component (without scheme, authority, query and fragment).
  [[nodiscard]] ustring getPath() const;
  [[nodiscard]] bool hasQueryOrFragment() const;

  // RFC 3986 section 5.2: `reference` resolved against this URI as its base, dot segments removed.
  [[nodiscard]] URI resolve(const URI& reference) const;

  auto operator<=>(const URI&) const = default;

 private:
  struct Trusted {};
  URI(ustring text, Trusted) : text_(std::move(text)) {}
  ustring text_;
};

}  // namespace opc::model
