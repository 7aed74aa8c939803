#include "opc/kqservices/file_system_names.h"

#include <algorithm>
#include <array>
#include <optional>

#include "foundation/i18n.h"
#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::kqservices::detail {

namespace {

using opc::detail::appendPercentEncodedUtf8;
using opc::detail::equalsIgnoreAsciiCase;
using opc::detail::hexValue;
using opc::detail::isAlpha;
using opc::detail::isHexDigit;
using opc::detail::isSubDelim;
using opc::detail::isUnreserved;
using opc::detail::narrow;
using opc::detail::nextCodePoint;
using opc::detail::toUtf8;

constexpr std::size_t kMaxNameBytes = 255;

// The path for a message: a NUL would cut the message short.
std::string display(const ustring& path) {
  std::string out = narrow(path);
  for (std::size_t i = out.find('\0'); i != std::string::npos; i = out.find('\0', i)) out.replace(i, 1, "\\0");
  return out;
}

// Whether the segment holds an escape or a character beyond ASCII: one that does not is its own name.
bool needsDecoding(ustring_view segment) {
  return std::any_of(segment.begin(), segment.end(), [](char16_t c) { return c == u'%' || c == u':' || c >= 0x80; });
}

}  // namespace

const char* componentDefect(const ustring& component) {
  if (component.empty()) return "it has an empty component";
  if (component == u"." || component == u"..") return "it has a '.' or '..' component";
  for (const char16_t c : component) {
    if (c == u'\\') return "a component holds '\\'";
    if (c == u'/') return "a component holds '/'";
    if (c == u'\0') return "a component holds a NUL character";
  }
  if (component.size() >= 2 && isAlpha(component[0]) && component[1] == u':') {
    return "a component starts with a drive prefix";
  }
  if (narrow(component).size() > kMaxNameBytes) return "a component is longer than 255 bytes";
  return nullptr;
}

std::vector<ustring> splitPath(const ustring& path) {
  std::vector<ustring> components;
  std::size_t start = (!path.empty() && path[0] == u'/') ? 1 : 0;
  if (start == path.size()) throw Exception("invalid path in the add-on '" + narrow(path) + "': it is empty");
  for (;;) {
    const std::size_t slash = path.find(u'/', start);
    components.push_back(path.substr(start, slash == ustring::npos ? ustring::npos : slash - start));
    if (const char* defect = componentDefect(components.back())) {
      throw Exception("invalid path in the add-on '" + display(path) + "': " + defect);
    }
    if (slash == ustring::npos) break;
    start = slash + 1;
  }
  return components;
}

// Characters a URI parser rejects in a path once decoded: ASCII outside pchar (space, '#', '%', '[',
// controls...), and outside ASCII the control and space characters. Some OPC readers decode a part
// name before parsing it as a URI, so these are escaped as ":XX" per UTF-8 byte, which no reader
// decodes; other non-ASCII characters are percent-encoded as IRIs map them, and ':' as "%3A".
bool needsColonEscape(char32_t cp) {
  if (cp < 0x80) {
    const auto c = static_cast<char16_t>(cp);
    return !(isUnreserved(c) || isSubDelim(c) || c == u'@' || c == u':');
  }
  return cp <= 0x9F || cp == 0xA0 || cp == 0x1680 || (cp >= 0x2000 && cp <= 0x200A) || cp == 0x2028 ||
         cp == 0x2029 || cp == 0x202F || cp == 0x205F || cp == 0x3000;
}

ustring encodeComponent(const ustring& name) {
  ustring segment;
  segment.reserve(name.size());
  for (std::size_t i = 0; i < name.size();) {
    const char32_t cp = nextCodePoint(name, i, "file name");
    if (needsColonEscape(cp)) {
      ustring percent;
      appendPercentEncodedUtf8(percent, cp);
      for (char16_t& c : percent) {
        if (c == u'%') c = u':';
      }
      segment += percent;
    } else if (cp >= 0x80 || cp == u':') {
      appendPercentEncodedUtf8(segment, cp);
    } else {
      segment += static_cast<char16_t>(cp);
    }
  }
  // A bare ':' at the end is never an escape (those carry two hex digits), so it can mark a segment
  // that a part name could not hold or would misread: one ending in '.', and "_rels".
  if (!segment.empty() && (segment.back() == u'.' || equalsIgnoreAsciiCase(segment, u"_rels"))) {
    segment += u':';
  }
  return segment;
}

void appendDecoded(ustring& out, ustring_view segment, std::string& bytes) {
  if (!needsDecoding(segment)) {  // most segments
    out += segment;
    return;
  }
  static constexpr auto kHex = [] {
    std::array<signed char, 0x80> table{};
    for (char16_t c = 0; c < 0x80; ++c) table[c] = static_cast<signed char>(isHexDigit(c) ? hexValue(c) : -1);
    return table;
  }();
  const auto hex = [&](std::size_t i) { return segment[i] < 0x80 ? kHex[segment[i]] : -1; };
  // A unit is at most three bytes of UTF-8; the room only grows, so it is not filled on every call.
  if (bytes.size() < 3 * segment.size()) bytes.resize(3 * segment.size());
  char* p = bytes.data();
  for (std::size_t i = 0; i < segment.size(); ++i) {
    const char16_t c = segment[i];
    if ((c == u'%' || c == u':') && i + 2 < segment.size() && (hex(i + 1) | hex(i + 2)) >= 0) {
      *p++ = static_cast<char>(hex(i + 1) * 16 + hex(i + 2));
      i += 2;
    } else if (c == u':' && i + 1 == segment.size()) {
      break;
    } else if (c == u'%') {
      throw Exception("cannot decode '" + narrow(segment) + "': '%' not followed by two hex digits");
    } else if (c >= 0x80) {
      // Part names hold non-ASCII characters percent-encoded; one read raw from elsewhere passes.
      std::size_t next = i;
      (void)nextCodePoint(segment, next, "segment");
      const std::string utf8 = toUtf8(segment.substr(i, next - i), "segment");
      p = std::copy(utf8.begin(), utf8.end(), p);
      i = next - 1;
    } else {
      *p++ = static_cast<char>(c);
    }
  }
  const std::string_view decoded(bytes.data(), static_cast<std::size_t>(p - bytes.data()));
  const std::optional<std::size_t> length = fl::i18n::utf16_length(decoded);
  if (!length) throw Exception("segment '" + narrow(segment) + "': its escapes are not UTF-8");
  const std::size_t at = out.size();
  out.resize(at + *length);
  fl::i18n::decode_utf8(decoded, out.data() + at);
}

ustring decodeComponent(ustring_view segment) {
  ustring out;
  std::string bytes;
  appendDecoded(out, segment, bytes);
  return out;
}

}  // namespace opc::kqservices::detail
