// JSON text straight from host arrays. Strings, rows of strings and plain structures, which is what
// the gateway returns, are written from the arrays' storage with no intermediate document; every other
// value takes the document path, whose text is the reference this one must match byte for byte.
#include <algorithm>
#include <cstring>
#include <string>

#include "foundation/i18n.h"
#include "host/json/json.h"

namespace zvhost::json {

namespace {

bool isRow(const qxArray* a) { return qxGetNumberOfDimensions(a) == 2 && qxGetM(a) == 1; }

// Collects output in a stack buffer and appends it to the string in pieces, so that each character
// costs a store rather than a string append.
class Sink {
 public:
  explicit Sink(std::string& out) : out_(out) {}
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  ~Sink() { flush(); }

  // Room for the longest thing written in one go: an escaped unit or a four-byte sequence.
  void reserve() {
    if (used_ > sizeof buffer_ - 8) flush();
  }
  void put(char c) { buffer_[used_++] = c; }
  void putUtf8(char32_t c) { used_ += fl::i18n::encode_utf8(c, buffer_ + used_); }
  // Copies units from [k, n) while they are printable ASCII needing no escape and there is room;
  // returns where it stopped.
  std::size_t putPlainAscii(const char16_t* units, std::size_t k, std::size_t n) {
    char* p = buffer_ + used_;
    const std::size_t end = std::min(n, k + (sizeof buffer_ - 8 - used_));
    for (; k < end; ++k) {
      const char16_t c = units[k];
      if (c < 0x20 || c >= 0x80 || c == '"' || c == '\\') break;
      *p++ = static_cast<char>(c);
    }
    used_ = static_cast<std::size_t>(p - buffer_);
    return k;
  }
  void flush() {
    out_.append(buffer_, used_);
    used_ = 0;
  }
  // Where the output stands now, to come back to with rewind.
  [[nodiscard]] std::size_t mark() {
    flush();
    return out_.size();
  }
  void rewind(std::size_t mark) {
    used_ = 0;
    out_.resize(mark);
  }
  void append(const std::string& text) {
    flush();
    out_ += text;
  }

 private:
  std::string& out_;
  char buffer_[2048];
  std::size_t used_ = 0;
};

constexpr char hexDigits[] = "0123456789abcdef";

// Writes units as a quoted JSON string in UTF-8, escaped as the document path escapes (short escapes
// where JSON has them, \u00xx for other control characters, everything else as it is). Returns false
// at a lone surrogate, which has no UTF-8 form; what was written by then is the caller's to discard.
bool writeString(Sink& sink, const char16_t* units, std::size_t n) {
  sink.reserve();
  sink.put('"');
  for (std::size_t k = 0; k < n; ++k) {
    sink.reserve();
    k = sink.putPlainAscii(units, k, n);
    if (k == n) break;
    char32_t c = units[k];
    if (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') {
      sink.put(static_cast<char>(c));  // the buffer was full
    } else if (c < 0x80) {
      constexpr std::string_view shortForms = "\"\\\b\f\n\r\t";
      const std::size_t at = shortForms.find(static_cast<char>(c));
      sink.put('\\');
      if (at != std::string_view::npos) {
        sink.put("\"\\bfnrt"[at]);
      } else {
        for (char x : {'u', '0', '0', hexDigits[c >> 4], hexDigits[c & 15]}) sink.put(x);
      }
    } else {
      if (c >= 0xD800 && c <= 0xDFFF) {
        if (c > 0xDBFF || k + 1 == n || units[k + 1] < 0xDC00 || units[k + 1] > 0xDFFF) return false;
        c = 0x10000 + ((c - 0xD800) << 10) + (units[++k] - 0xDC00);
      }
      sink.putUtf8(c);
    }
  }
  sink.put('"');
  return true;
}

// A character row with valid UTF-16 as a JSON string; false when it has no plain form.
bool writeText(Sink& sink, const qxArray* a) {
  if (!qxIsChar(a) || !isRow(a)) return false;
  return writeString(sink, static_cast<const char16_t*>(qxGetData(a)), qxGetNumberOfElements(a));
}

bool writePlain(Sink& sink, const qxArray* a);
void writeValue(Sink& sink, const qxArray* a);

void writeValue(Sink& sink, const qxArray* a) {
  const std::size_t mark = sink.mark();
  if (writePlain(sink, a)) return;
  // The document path decides: drop the partial text and let it write the whole value.
  sink.rewind(mark);
  sink.append(fromArray(a).dump());
}

void writeElement(Sink& sink, const qxArray* a, qxIndex i) {
  sink.reserve();
  sink.put('{');
  for (int n = 0; n < qxGetNumberOfFields(a); ++n) {
    if (n != 0) sink.put(',');
    const char* name = qxGetFieldNameByNumber(a, n);  // an identifier: nothing to escape
    sink.put('"');
    for (const char* p = name; *p != '\0'; ++p) {
      sink.reserve();
      sink.put(*p);
    }
    sink.reserve();
    sink.put('"');
    sink.put(':');
    writeValue(sink, qxGetFieldByNumber(a, i, n));
    sink.reserve();
  }
  sink.put('}');
}

// The plain forms the gateway's results take; false (with partial output) for anything else, which
// the caller then hands whole to the document path. A field's value gets the same choice on its own.
bool writePlain(Sink& sink, const qxArray* a) {
  if (a == nullptr) {
    sink.reserve();
    for (char c : std::string_view("null")) sink.put(c);
    return true;
  }
  const std::size_t count = qxGetNumberOfElements(a);
  switch (qxGetClassID(a)) {
    case qxCHAR_CLASS:
      return writeText(sink, a);
    case qxCELL_CLASS:
      if (!isRow(a) || count == 0) return false;
      sink.reserve();
      sink.put('[');
      for (std::size_t k = 0; k < count; ++k) {
        sink.reserve();
        if (k != 0) sink.put(',');
        if (!writeText(sink, qxGetCell(a, k))) return false;
      }
      sink.reserve();
      sink.put(']');
      return true;
    case qxSTRUCT_CLASS:
      if (!isRow(a) || count == 0) return false;
      if (count == 1) {
        writeElement(sink, a, 0);
        return true;
      }
      sink.reserve();
      sink.put('[');
      for (std::size_t i = 0; i < count; ++i) {
        sink.reserve();
        if (i != 0) sink.put(',');
        writeElement(sink, a, i);
      }
      sink.reserve();
      sink.put(']');
      return true;
    default:
      return false;
  }
}

}  // namespace

void appendText(std::string& out, const qxArray* a) {
  const std::size_t start = out.size();
  try {
    Sink sink(out);
    writeValue(sink, a);
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
