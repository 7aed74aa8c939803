#include "foundation/i18n.h"

#include <algorithm>
#include <cctype>

namespace fl::i18n {
namespace {

void requireUtf8(std::string_view encoding) {
  std::string lowered;
  for (char c : encoding) {
    if (c != '-' && c != '_') lowered.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  }
  if (lowered != "utf8") throw conversion_error("unsupported encoding: " + std::string(encoding));
}

bool isHigh(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool isLow(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

}  // namespace

// Two passes, so that the result is allocated once at its exact size: converted paths and names
// are kept by the ten thousand.
std::string to_utf8(ustring_view text) {
  if (std::all_of(text.begin(), text.end(), [](char16_t c) { return c < 0x80; })) {
    return std::string(text.begin(), text.end());
  }
  std::size_t length = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (isHigh(c) && i + 1 < text.size() && isLow(text[i + 1])) {
      length += 4;
      ++i;
    } else if (isHigh(c) || isLow(c)) {
      throw conversion_error("text is not valid UTF-16");
    } else {
      length += c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
    }
  }
  std::string out(length, '\0');
  std::size_t at = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t cp = text[i];
    if (isHigh(text[i])) cp = 0x10000 + ((cp - 0xD800) << 10) + (text[++i] - 0xDC00);
    at += encode_utf8(cp, out.data() + at);
  }
  return out;
}

std::optional<std::size_t> utf16_length(std::string_view text) noexcept {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  auto tail = [&](std::size_t k) { return k < n && (p[k] & 0xC0) == 0x80; };
  std::size_t units = 0;
  for (std::size_t k = 0; k < n;) {
    const unsigned char c = p[k];
    std::size_t width = 0;
    if (c < 0x80) {
      width = 1;
    } else if (c >= 0xC2 && c <= 0xDF) {
      width = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      width = 3;
      if (tail(k + 1) && ((c == 0xE0 && p[k + 1] < 0xA0) || (c == 0xED && p[k + 1] > 0x9F))) {
        return std::nullopt;  // overlong, or a surrogate
      }
    } else if (c >= 0xF0 && c <= 0xF4) {
      width = 4;
      if (tail(k + 1) && ((c == 0xF0 && p[k + 1] < 0x90) || (c == 0xF4 && p[k + 1] > 0x8F))) {
        return std::nullopt;  // overlong, or beyond U+10FFFF
      }
    } else {
      return std::nullopt;
    }
    for (std::size_t t = 1; t < width; ++t) {
      if (!tail(k + t)) return std::nullopt;
    }
    k += width;
    units += width == 4 ? 2 : 1;
  }
  return units;
}

void decode_utf8(std::string_view text, char16_t* out) noexcept {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  for (std::size_t k = 0; k < text.size();) {
    const unsigned char c = p[k];
    const std::size_t width = c < 0x80 ? 1 : c < 0xE0 ? 2 : c < 0xF0 ? 3 : 4;
    char32_t v = width == 1 ? c : c & (0x7F >> width);
    for (std::size_t t = 1; t < width; ++t) v = (v << 6) | (p[k + t] & 0x3F);
    if (v >= 0x10000) {
      *out++ = static_cast<char16_t>(0xD800 + ((v - 0x10000) >> 10));
      *out++ = static_cast<char16_t>(0xDC00 + ((v - 0x10000) & 0x3FF));
    } else {
      *out++ = static_cast<char16_t>(v);
    }
    k += width;
  }
}

ustring from_utf8(std::string_view text) {
  const std::optional<std::size_t> length = utf16_length(text);
  if (!length) throw conversion_error("text is not valid UTF-8");
  ustring out(*length, u'\0');
  decode_utf8(text, out.data());
  return out;
}

codecvt_ustring_to_string::codecvt_ustring_to_string(std::string_view encoding) { requireUtf8(encoding); }
std::string codecvt_ustring_to_string::convert(ustring_view text) const { return to_utf8(text); }

codecvt_string_to_ustring::codecvt_string_to_ustring(std::string_view encoding) { requireUtf8(encoding); }
ustring codecvt_string_to_ustring::convert(std::string_view text) const { return from_utf8(text); }

std::string to_string(const codecvt_ustring_to_string& cvt, ustring_view text) { return cvt.convert(text); }
ustring to_ustring(const codecvt_string_to_ustring& cvt, std::string_view text) { return cvt.convert(text); }

}  // namespace fl::i18n
