#pragma once
// UTF-8 decoded straight into a char array's UTF-16 storage, so that making a host string from UTF-8
// takes no intermediate copy. Header-only: every host and the JSON conversion share it.
//
// Well-formed means what the checked converter (fl::i18n::from_utf8) accepts: shortest forms only, no
// surrogate code points, nothing beyond U+10FFFF, no truncated sequence. Callers fall back to that
// converter for text this refuses, so that its error is the one reported.
#include <cstddef>
#include <optional>
#include <string_view>

namespace zvhost::utf8 {

// The number of UTF-16 units text decodes to; nothing when it is not well-formed.
[[nodiscard]] inline std::optional<std::size_t> utf16Length(std::string_view text) noexcept {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  std::size_t units = 0;
  auto tail = [&](std::size_t k) { return k < n && (p[k] & 0xC0) == 0x80; };
  for (std::size_t k = 0; k < n;) {
    const unsigned char c = p[k];
    if (c < 0x80) {
      k += 1;
      units += 1;
    } else if (c >= 0xC2 && c <= 0xDF) {
      if (!tail(k + 1)) return std::nullopt;
      k += 2;
      units += 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
      if (!tail(k + 1) || !tail(k + 2)) return std::nullopt;
      if (c == 0xE0 && p[k + 1] < 0xA0) return std::nullopt;  // overlong
      if (c == 0xED && p[k + 1] > 0x9F) return std::nullopt;  // a surrogate
      k += 3;
      units += 1;
    } else if (c >= 0xF0 && c <= 0xF4) {
      if (!tail(k + 1) || !tail(k + 2) || !tail(k + 3)) return std::nullopt;
      if (c == 0xF0 && p[k + 1] < 0x90) return std::nullopt;  // overlong
      if (c == 0xF4 && p[k + 1] > 0x8F) return std::nullopt;  // beyond U+10FFFF
      k += 4;
      units += 2;
    } else {
      return std::nullopt;
    }
  }
  return units;
}

// Writes the UTF-16 form of text, which utf16Length accepted, to out (room for that many units).
inline void decode(std::string_view text, char16_t* out) noexcept {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  for (std::size_t k = 0; k < n;) {
    const unsigned char c = p[k];
    if (c < 0x80) {
      *out++ = c;
      k += 1;
    } else if (c < 0xE0) {
      *out++ = static_cast<char16_t>(((c & 0x1F) << 6) | (p[k + 1] & 0x3F));
      k += 2;
    } else if (c < 0xF0) {
      *out++ = static_cast<char16_t>(((c & 0x0F) << 12) | ((p[k + 1] & 0x3F) << 6) | (p[k + 2] & 0x3F));
      k += 3;
    } else {
      const char32_t v = ((c & 0x07u) << 18) | ((p[k + 1] & 0x3Fu) << 12) | ((p[k + 2] & 0x3Fu) << 6) |
                         (p[k + 3] & 0x3Fu);
      *out++ = static_cast<char16_t>(0xD800 + ((v - 0x10000) >> 10));
      *out++ = static_cast<char16_t>(0xDC00 + ((v - 0x10000) & 0x3FF));
      k += 4;
    }
  }
}

}  // namespace zvhost::utf8
