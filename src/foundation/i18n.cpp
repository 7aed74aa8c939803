#include "foundation/i18n.h"

#include <algorithm>
#include <cctype>

#include <boost/locale/encoding_utf.hpp>

namespace fl::i18n {
namespace {

bool isUtf8Name(std::string_view encoding) {
  std::string lowered;
  for (char c : encoding) {
    if (c != '-' && c != '_') lowered.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
  }
  return lowered == "utf8";
}

void requireUtf8(std::string_view encoding) {
  if (!isUtf8Name(encoding)) throw conversion_error("unsupported encoding: " + std::string(encoding));
}

// Most text crossing this boundary is ASCII (part names, paths, XML names), which converts one unit
// to one byte; Boost's converter encodes each code point through an output iterator instead.
template <class To, class From>
bool copyAscii(const From* begin, const From* end, std::basic_string<To>& out) {
  if (!std::all_of(begin, end, [](From c) { return static_cast<std::make_unsigned_t<From>>(c) < 0x80; })) return false;
  out.assign(begin, end);
  return true;
}

}  // namespace

// Boost.Locale's converter in its stopping form: a lone surrogate, an overlong or truncated sequence
// or a code point beyond U+10FFFF throws instead of being replaced.
// Two passes, so that the result is allocated once at its exact size: converted paths and names
// are kept by the ten thousand, and a string grown a character at a time keeps up to twice its size.
std::string to_utf8(ustring_view text) {
  if (std::string out; copyAscii(text.data(), text.data() + text.size(), out)) return out;
  const auto isHigh = [](char16_t c) { return c >= 0xD800 && c <= 0xDBFF; };
  const auto isLow = [](char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; };
  std::size_t length = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (c < 0x80) {
      length += 1;
    } else if (c < 0x800) {
      length += 2;
    } else if (isHigh(c) && i + 1 < text.size() && isLow(text[i + 1])) {
      length += 4;
      ++i;
    } else if (isHigh(c) || isLow(c)) {
      throw conversion_error("text is not valid UTF-16");
    } else {
      length += 3;
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

ustring from_utf8(std::string_view text) {
  if (ustring out; copyAscii(text.data(), text.data() + text.size(), out)) return out;
  try {
    return boost::locale::conv::utf_to_utf<char16_t>(text.data(), text.data() + text.size(), boost::locale::conv::stop);
  } catch (const boost::locale::conv::conversion_error&) {
    throw conversion_error("text is not valid UTF-8");
  }
}

codecvt_ustring_to_string::codecvt_ustring_to_string(std::string_view encoding) { requireUtf8(encoding); }
std::string codecvt_ustring_to_string::convert(ustring_view text) const { return to_utf8(text); }

codecvt_string_to_ustring::codecvt_string_to_ustring(std::string_view encoding) { requireUtf8(encoding); }
ustring codecvt_string_to_ustring::convert(std::string_view text) const { return from_utf8(text); }

std::string to_string(const codecvt_ustring_to_string& cvt, ustring_view text) { return cvt.convert(text); }
ustring to_ustring(const codecvt_string_to_ustring& cvt, std::string_view text) { return cvt.convert(text); }

}  // namespace fl::i18n
