// JSON text straight from host arrays. Strings, rows of strings and plain structures, which is what
// the gateway returns, are written from the arrays' storage with no intermediate document; every other
// value takes the document path, whose text is the reference this one must match byte for byte.
#include <algorithm>
#include <string>
#include <string_view>

#include "foundation/i18n.h"
#include "host/json/json.h"

namespace zvhost::json {

namespace {

bool isRow(const qxArray* a) { return qxGetNumberOfDimensions(a) == 2 && qxGetM(a) == 1; }

// A character row with valid UTF-16 as a quoted JSON string in UTF-8, escaped as the document path
// escapes (short escapes where JSON has them, \u00xx for other control characters, everything else
// as it is). False for anything else, a lone surrogate included (it has no UTF-8 form); what was
// written by then is the caller's to discard.
bool writeText(std::string& out, const qxArray* a) {
  if (!qxIsChar(a) || !isRow(a)) return false;
  const auto* units = static_cast<const char16_t*>(qxGetData(a));
  const std::size_t n = qxGetNumberOfElements(a);
  constexpr std::string_view shortForms = "\"\\\b\f\n\r\t";
  auto plain = [](char32_t c) { return c >= 0x20 && c < 0x80 && c != '"' && c != '\\'; };
  out += '"';
  for (std::size_t k = 0; k < n; ++k) {
    char32_t c = units[k];
    if (plain(c)) {  // a run of plain ASCII is copied in one go
      std::size_t end = k + 1;
      while (end < n && plain(units[end])) ++end;
      const std::size_t at = out.size();
      out.resize(at + end - k);
      std::copy(units + k, units + end, out.begin() + static_cast<std::ptrdiff_t>(at));
      k = end - 1;
    } else if (c < 0x80) {
      const std::size_t at = shortForms.find(static_cast<char>(c));
      out += '\\';
      if (at != std::string_view::npos) {
        out += "\"\\bfnrt"[at];
      } else {
        out += "u00";
        out += "0123456789abcdef"[c >> 4];
        out += "0123456789abcdef"[c & 15];
      }
    } else {
      if (c >= 0xD800 && c <= 0xDFFF) {
        if (c > 0xDBFF || k + 1 == n || units[k + 1] < 0xDC00 || units[k + 1] > 0xDFFF) return false;
        c = 0x10000 + ((c - 0xD800) << 10) + (units[++k] - 0xDC00);
      }
      char bytes[4];
      out.append(bytes, fl::i18n::encode_utf8(c, bytes));
    }
  }
  out += '"';
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
