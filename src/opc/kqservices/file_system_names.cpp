#include "opc/kqservices/file_system_names.h"

#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/model/part_name.h"

namespace opc::kqservices::detail {

namespace {

using opc::detail::equalsIgnoreAsciiCase;
using opc::detail::isAlpha;
using opc::detail::narrow;

constexpr std::size_t kMaxNameBytes = 255;

std::size_t utf8Length(const ustring& text) {
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char16_t c = text[i];
    if (c < 0x80) {
      bytes += 1;
    } else if (c < 0x800) {
      bytes += 2;
    } else if (c >= 0xD800 && c <= 0xDBFF) {
      bytes += 4;
      ++i;
    } else {
      bytes += 3;
    }
  }
  return bytes;
}

// The path for a message: a NUL would cut the message short.
std::string display(const ustring& path) {
  std::string out = narrow(path);
  for (std::size_t i = out.find('\0'); i != std::string::npos; i = out.find('\0', i)) out.replace(i, 1, "\\0");
  return out;
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
  if (utf8Length(component) > kMaxNameBytes) return "a component is longer than 255 bytes";
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

ustring joinPath(const std::vector<ustring>& components) {
  if (components.empty()) return u"/";
  ustring out;
  for (const ustring& c : components) {
    out += u'/';
    out += c;
  }
  return out;
}

ustring encodeComponent(const ustring& name) {
  ustring segment = model::PartName::encodeSegment(name);
  // encodeSegment never leaves ':' bare, so a bare trailing ':' is ours alone and decoding is exact.
  if (!segment.empty() && (segment.back() == u'.' || equalsIgnoreAsciiCase(segment, u"_rels"))) {
    segment += u':';
  }
  return segment;
}

ustring decodeComponent(const ustring& segment) {
  if (!segment.empty() && segment.back() == u':') {
    return model::PartName::decodeSegment(ustring_view(segment).substr(0, segment.size() - 1));
  }
  return model::PartName::decodeSegment(segment);
}

}  // namespace opc::kqservices::detail
