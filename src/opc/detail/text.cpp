#include "opc/detail/text.h"

#include <algorithm>

#include "foundation/i18n.h"
#include "opc/exception.h"

namespace opc::detail {

std::string narrow(ustring_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t cp = text[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;
    }
    char bytes[4];
    out.append(bytes, fl::i18n::encode_utf8(cp, bytes));
  }
  return out;
}

std::string toUtf8(ustring_view text, std::string_view what) {
  try {
    return fl::i18n::to_utf8(text);
  } catch (const fl::i18n::conversion_error& e) {
    throw Exception(std::string(what) + " is not valid UTF-16: " + e.what());
  }
}

ustring fromUtf8(std::string_view text, std::string_view what) {
  try {
    return fl::i18n::from_utf8(text);
  } catch (const fl::i18n::conversion_error& e) {
    throw Exception(std::string(what) + " is not valid UTF-8: " + e.what());
  }
}

ustring asciiLower(ustring_view text) {
  ustring out(text);
  for (auto& c : out) c = asciiLower(c);
  return out;
}

bool equalsIgnoreAsciiCase(ustring_view a, ustring_view b) {
  return std::ranges::equal(a, b, [](char16_t x, char16_t y) { return asciiLower(x) == asciiLower(y); });
}

bool equalsIgnoreAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  if (a == b) return true;  // the usual case of a found key, at memcmp's pace
  for (std::size_t i = 0; i < a.size(); ++i) {
    const auto x = static_cast<unsigned char>(a[i]);
    const auto y = static_cast<unsigned char>(b[i]);
    if (x != y && asciiLower(x) != asciiLower(y)) return false;
  }
  return true;
}

char32_t nextCodePoint(ustring_view text, std::size_t& i, std::string_view what) {
  const char32_t c = text[i++];
  if (c >= 0xD800 && c <= 0xDBFF && i < text.size() && text[i] >= 0xDC00 && text[i] <= 0xDFFF) {
    return 0x10000 + ((c - 0xD800) << 10) + (text[i++] - 0xDC00);
  }
  if (c >= 0xD800 && c <= 0xDFFF) {
    throw Exception(std::string(what) + " '" + narrow(text) + "' holds an unpaired surrogate");
  }
  return c;
}

}  // namespace opc::detail
