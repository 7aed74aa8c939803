#include "opc/detail/text.h"

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
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
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

std::string asciiOnly(ustring_view text, std::string_view what) {
  std::string out(text.size(), '\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] > 0x7F) throw Exception(std::string(what) + " '" + narrow(text) + "' is not ASCII");
    out[i] = static_cast<char>(text[i]);
  }
  return out;
}

ustring widenAscii(std::string_view text) {
  return ustring(text.begin(), text.end());
}

ustring asciiLower(ustring_view text) {
  ustring out(text);
  for (auto& c : out) c = asciiLower(c);
  return out;
}

bool equalsIgnoreAsciiCase(ustring_view a, ustring_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  }
  return true;
}

void appendPercentEncodedUtf8(ustring& out, char32_t cp) {
  unsigned char bytes[4];
  int n = 0;
  if (cp < 0x80) {
    bytes[n++] = static_cast<unsigned char>(cp);
  } else if (cp < 0x800) {
    bytes[n++] = static_cast<unsigned char>(0xC0 | (cp >> 6));
    bytes[n++] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    bytes[n++] = static_cast<unsigned char>(0xE0 | (cp >> 12));
    bytes[n++] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
    bytes[n++] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
  } else {
    bytes[n++] = static_cast<unsigned char>(0xF0 | (cp >> 18));
    bytes[n++] = static_cast<unsigned char>(0x80 | ((cp >> 12) & 0x3F));
    bytes[n++] = static_cast<unsigned char>(0x80 | ((cp >> 6) & 0x3F));
    bytes[n++] = static_cast<unsigned char>(0x80 | (cp & 0x3F));
  }
  static constexpr char16_t hex[] = u"0123456789ABCDEF";
  for (int k = 0; k < n; ++k) {
    out += u'%';
    out += hex[bytes[k] >> 4];
    out += hex[bytes[k] & 0xF];
  }
}

char32_t nextCodePoint(ustring_view text, std::size_t& i, std::string_view what) {
  char32_t c = text[i++];
  if (c >= 0xD800 && c <= 0xDBFF) {
    if (i < text.size() && text[i] >= 0xDC00 && text[i] <= 0xDFFF) {
      return 0x10000 + ((c - 0xD800) << 10) + (text[i++] - 0xDC00);
    }
    throw Exception(std::string(what) + " '" + narrow(text) + "' holds an unpaired surrogate");
  }
  if (c >= 0xDC00 && c <= 0xDFFF) {
    throw Exception(std::string(what) + " '" + narrow(text) + "' holds an unpaired surrogate");
  }
  return c;
}

}  // namespace opc::detail
