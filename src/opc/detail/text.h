#pragma once
// Text helpers shared inside the OPC library.
#include <algorithm>
#include <string>
#include <string_view>

#include "foundation/i18n.h"
#include "foundation/ustring.h"

namespace opc::detail {

// UTF-8 of `text` for messages; never throws (an invalid code unit shows as U+FFFD).
[[nodiscard]] std::string narrow(ustring_view text);
// Strict conversions; throw opc::Exception with `what` in the message.
[[nodiscard]] std::string toUtf8(ustring_view text, std::string_view what);
[[nodiscard]] ustring fromUtf8(std::string_view text, std::string_view what);
[[nodiscard]] inline ustring widenAscii(std::string_view text) { return ustring(text.begin(), text.end()); }
[[nodiscard]] inline bool isAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

[[nodiscard]] constexpr char16_t asciiLower(char16_t c) { return (c >= u'A' && c <= u'Z') ? c + 32 : c; }
[[nodiscard]] ustring asciiLower(ustring_view text);
[[nodiscard]] bool equalsIgnoreAsciiCase(ustring_view a, ustring_view b);
// Bytes above 0x7F compare as they are.
[[nodiscard]] bool equalsIgnoreAsciiCase(std::string_view a, std::string_view b);

[[nodiscard]] constexpr bool isAlpha(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }
[[nodiscard]] constexpr bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
[[nodiscard]] constexpr bool isHexDigit(char16_t c) {
  return isDigit(c) || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}
[[nodiscard]] constexpr int hexValue(char16_t c) {
  return isDigit(c) ? c - u'0' : (c >= u'a' && c <= u'f') ? c - u'a' + 10 : c - u'A' + 10;
}
// RFC 3986 character classes.
[[nodiscard]] constexpr bool isUnreserved(char16_t c) {
  return isAlpha(c) || isDigit(c) || c == u'-' || c == u'.' || c == u'_' || c == u'~';
}
[[nodiscard]] constexpr bool isSubDelim(char16_t c) {
  return c == u'!' || c == u'$' || c == u'&' || c == u'\'' || c == u'(' || c == u')' || c == u'*' ||
         c == u'+' || c == u',' || c == u';' || c == u'=';
}
[[nodiscard]] constexpr bool isGenDelim(char16_t c) {
  return c == u':' || c == u'/' || c == u'?' || c == u'#' || c == u'[' || c == u']' || c == u'@';
}

// Appends "%XX" (upper-case hex) for every UTF-8 byte of the code point to a std::string or ustring.
template <class String>
void appendPercentEncodedUtf8(String& out, char32_t codePoint) {
  char bytes[4];
  const std::size_t n = fl::i18n::encode_utf8(codePoint, bytes);
  static constexpr char hex[] = "0123456789ABCDEF";
  for (std::size_t k = 0; k < n; ++k) {
    const auto byte = static_cast<unsigned char>(bytes[k]);
    out += '%';
    out += hex[byte >> 4];
    out += hex[byte & 0xF];
  }
}
// Reads the code point at `i` (a surrogate pair counts as one) and advances `i`; throws
// opc::Exception for an unpaired surrogate.
[[nodiscard]] char32_t nextCodePoint(ustring_view text, std::size_t& i, std::string_view what);

}  // namespace opc::detail
