#pragma once
// Converters between UTF-16 (ustring) and narrow text.
// Only UTF-8 is supported ("utf8", "UTF-8" and case variants). Conversion is strict: a lone surrogate
// in UTF-16 or an ill-formed sequence in UTF-8 throws conversion_error; nothing is replaced silently.
// Well-formed UTF-8 means shortest forms only, no surrogate code points, nothing beyond U+10FFFF and
// no truncated sequence.
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "foundation/ustring.h"

namespace fl::i18n {

class conversion_error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws conversion_error for an encoding other than UTF-8.
class codecvt_ustring_to_string {
 public:
  explicit codecvt_ustring_to_string(std::string_view encoding);
  [[nodiscard]] std::string convert(ustring_view text) const;
};

class codecvt_string_to_ustring {
 public:
  explicit codecvt_string_to_ustring(std::string_view encoding);
  [[nodiscard]] ustring convert(std::string_view text) const;
};

[[nodiscard]] std::string to_string(const codecvt_ustring_to_string& cvt, ustring_view text);
[[nodiscard]] ustring to_ustring(const codecvt_string_to_ustring& cvt, std::string_view text);

// Shorthands for UTF-8, the only narrow encoding the system uses.
[[nodiscard]] std::string to_utf8(ustring_view text);
[[nodiscard]] ustring from_utf8(std::string_view text);

// The number of UTF-16 units well-formed UTF-8 text decodes to; nothing when it is not well-formed.
[[nodiscard]] std::optional<std::size_t> utf16_length(std::string_view text) noexcept;
// Writes the UTF-16 form of text, which utf16_length accepted, to out (room for that many units):
// host arrays are filled in place with it, without an intermediate string.
void decode_utf8(std::string_view text, char16_t* out) noexcept;

// Writes the UTF-8 bytes of `cp` (a code point up to U+10FFFF, not a surrogate) to `out` and
// returns how many there are (1 to 4).
inline std::size_t encode_utf8(char32_t cp, char* out) noexcept {
  const std::size_t n = cp < 0x80 ? 1 : cp < 0x800 ? 2 : cp < 0x10000 ? 3 : 4;
  for (std::size_t k = n - 1; k > 0; --k, cp >>= 6) out[k] = static_cast<char>(0x80 | (cp & 0x3F));
  out[0] = static_cast<char>(n == 1 ? cp : (0xF00 >> n) | cp);  // a lead byte starts with n ones
  return n;
}

}  // namespace fl::i18n
