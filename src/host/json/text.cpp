// JSON text straight from host arrays. Strings, rows of strings and plain structures, which is what
// the gateway returns, are written from the arrays' storage with no intermediate document; every other
// value takes the document path, whose text is the reference this one must match byte for byte.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "foundation/i18n.h"
#include "host/common/host_common.h"
#include "host/json/json.h"

namespace zvhost::json {

namespace {

// ASCII characters a JSON string holds as they are.
constexpr auto kPlain = [] {
  std::array<bool, 0x80> plain{};
  for (char c = 0x20; c < 0x7F; ++c) plain[static_cast<std::size_t>(c)] = c != '"' && c != '\\';
  plain[0x7F] = true;
  return plain;
}();

// Four units written as four bytes when all are ASCII that a JSON string holds as it is (kPlain),
// tested at once; false otherwise. One unit a 16-bit lane, each below 0x80 once the first test has
// passed, so adding to a lane never carries into the next.
bool copyPlainQuad(const char16_t* units, char* out) {
  static_assert(std::endian::native == std::endian::little, "lanes are read in memory order");
  constexpr std::uint64_t kLanes = 0x0001000100010001;
  constexpr std::uint64_t kTop = 0x8000 * kLanes;
  std::uint64_t w = 0;
  std::memcpy(&w, units, sizeof w);
  if ((w & 0xFF80 * kLanes) != 0) return false;
  const std::uint64_t atLeastSpace = w + (0x8000 - 0x20) * kLanes;
  const std::uint64_t notQuote = (w ^ '"' * kLanes) + 0x7FFF * kLanes;
  const std::uint64_t notBackslash = (w ^ '\\' * kLanes) + 0x7FFF * kLanes;
  if ((atLeastSpace & notQuote & notBackslash & kTop) != kTop) return false;
  w = (w | w >> 8) & 0x0000FFFF0000FFFF;  // the low bytes of lanes 0-1 and 2-3 side by side
  const auto bytes = static_cast<std::uint32_t>(w | w >> 16);
  std::memcpy(out, &bytes, sizeof bytes);
  return true;
}

// A character row with valid UTF-16 as a quoted JSON string in UTF-8, escaped as the document path
// escapes (short escapes where JSON has them, \u00xx for other control characters, everything else
// as it is). False for anything else, a lone surrogate included (it has no UTF-8 form); what was
// written by then is the caller's to discard. Listing a package writes tens of thousands of these:
// the text goes straight into room made for the longest form (six bytes a unit, for \u00xx).
bool writeText(std::string& out, const qxArray* a) {
  if (!qxIsChar(a) || !isRow(a)) return false;
  const auto* units = static_cast<const char16_t*>(qxGetData(a));
  const std::size_t n = qxGetNumberOfElements(a);
  const std::size_t start = out.size();
  out.resize(start + 6 * n + 2);
  char* p = out.data() + start;
  *p++ = '"';
  for (std::size_t k = 0; k < n; ++k) {
    for (; k + 4 <= n && copyPlainQuad(units + k, p); k += 4) p += 4;
    if (k == n) break;
    char32_t c = units[k];
    if (c < 0x80 && kPlain[c]) {
      *p++ = static_cast<char>(c);
    } else if (c < 0x80) {
      constexpr std::string_view shortForms = "\"\\\b\f\n\r\t";
      const std::size_t at = shortForms.find(static_cast<char>(c));
      *p++ = '\\';
      if (at != std::string_view::npos) {
        *p++ = "\"\\bfnrt"[at];
      } else {
        p = std::copy_n("u00", 3, p);
        *p++ = "0123456789abcdef"[c >> 4];
        *p++ = "0123456789abcdef"[c & 15];
      }
    } else {
      if (c >= 0xD800 && c <= 0xDFFF) {
        if (c > 0xDBFF || k + 1 == n || units[k + 1] < 0xDC00 || units[k + 1] > 0xDFFF) return false;
        c = 0x10000 + ((c - 0xD800) << 10) + (units[++k] - 0xDC00);
      }
      p += fl::i18n::encode_utf8(c, p);
    }
  }
  *p++ = '"';
  out.resize(static_cast<std::size_t>(p - out.data()));
  return true;
}

void writeValue(std::string& out, const qxArray* a);

// "{...}" of element i, each field's value given the same choice as a whole value.
void writeElement(std::string& out, const qxArray* a, qxIndex i) {
  out += '{';
  for (int n = 0; n < qxGetNumberOfFields(a); ++n) {
    if (n != 0) out += ',';
    out.append("\"").append(qxGetFieldNameByNumber(a, n)).append("\":");  // an identifier: nothing to escape
    writeValue(out, qxGetFieldByNumber(a, i, n));
  }
  out += '}';
}

// The plain forms the gateway's results take; false (with partial output) for anything else.
bool writePlain(std::string& out, const qxArray* a) {
  if (a == nullptr) {
    out += "null";
    return true;
  }
  const std::size_t count = qxGetNumberOfElements(a);
  if (qxIsChar(a)) return writeText(out, a);
  if (!(qxIsCell(a) || qxIsStruct(a)) || !isRow(a) || count == 0) return false;
  if (qxIsStruct(a) && count == 1) {
    writeElement(out, a, 0);
    return true;
  }
  out += '[';
  for (std::size_t k = 0; k < count; ++k) {
    if (k != 0) out += ',';
    if (qxIsStruct(a)) {
      writeElement(out, a, k);
    } else if (!writeText(out, qxGetCell(a, k))) {
      return false;
    }
  }
  out += ']';
  return true;
}

void writeValue(std::string& out, const qxArray* a) {
  const std::size_t mark = out.size();
  if (writePlain(out, a)) return;
  // The document path decides: drop the partial text and let it write the whole value.
  out.resize(mark);
  out += fromArray(a).dump();
}

}  // namespace

void appendText(std::string& out, const qxArray* a) {
  const std::size_t start = out.size();
  try {
    writeValue(out, a);
  } catch (...) {
    out.resize(start);
    throw;
  }
}

std::string toText(const qxArray* a) {
  std::string out;
  appendText(out, a);
  return out;
}

}  // namespace zvhost::json
