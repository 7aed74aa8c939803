#include "opc/model/uri.h"

#include <cctype>
#include <optional>
#include <vector>

#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::model {

namespace {

using namespace opc::detail;

struct Components {
  std::optional<ustring> scheme;
  std::optional<ustring> authority;
  ustring path;
  std::optional<ustring> query;
  std::optional<ustring> fragment;
};

// RFC 3986 appendix B.
Components split(const ustring& text) {
  Components c;
  std::size_t pos = 0;
  std::size_t i = 0;
  while (i < text.size() && text[i] != u':' && text[i] != u'/' && text[i] != u'?' && text[i] != u'#') ++i;
  if (i < text.size() && text[i] == u':' && i > 0 && isAlpha(text[0])) {
    bool valid = true;
    for (std::size_t k = 1; k < i; ++k) {
      const char16_t ch = text[k];
      if (!isAlpha(ch) && !isDigit(ch) && ch != u'+' && ch != u'-' && ch != u'.') valid = false;
    }
    if (valid) {
      c.scheme = text.substr(0, i);
      pos = i + 1;
    }
  }
  if (text.compare(pos, 2, u"//") == 0) {
    std::size_t end = pos + 2;
    while (end < text.size() && text[end] != u'/' && text[end] != u'?' && text[end] != u'#') ++end;
    c.authority = text.substr(pos + 2, end - pos - 2);
    pos = end;
  }
  std::size_t end = pos;
  while (end < text.size() && text[end] != u'?' && text[end] != u'#') ++end;
  c.path = text.substr(pos, end - pos);
  pos = end;
  if (pos < text.size() && text[pos] == u'?') {
    end = pos + 1;
    while (end < text.size() && text[end] != u'#') ++end;
    c.query = text.substr(pos + 1, end - pos - 1);
    pos = end;
  }
  if (pos < text.size() && text[pos] == u'#') c.fragment = text.substr(pos + 1);
  return c;
}

ustring join(const Components& c) {
  ustring out;
  if (c.scheme) out += *c.scheme + u":";
  if (c.authority) out += u"//" + *c.authority;
  out += c.path;
  if (c.query) out += u"?" + *c.query;
  if (c.fragment) out += u"#" + *c.fragment;
  return out;
}

// RFC 3986 section 5.2.4.
ustring removeDotSegments(const ustring& path) {
  std::vector<ustring> out;
  const bool absolute = !path.empty() && path[0] == u'/';
  std::size_t i = absolute ? 1 : 0;
  bool trailingSlash = false;
  while (i <= path.size()) {
    std::size_t end = path.find(u'/', i);
    if (end == ustring::npos) end = path.size();
    const ustring segment = path.substr(i, end - i);
    const bool last = end == path.size();
    if (segment == u".") {
      trailingSlash = last;
    } else if (segment == u"..") {
      if (!out.empty()) out.pop_back();
      trailingSlash = last;
    } else {
      out.push_back(segment);
      trailingSlash = false;
    }
    i = end + 1;
  }
  ustring result = absolute ? u"/" : u"";
  for (std::size_t k = 0; k < out.size(); ++k) {
    if (k > 0) result += u'/';
    result += out[k];
  }
  if (trailingSlash && !out.empty() && !out.back().empty()) result += u'/';
  return result;
}

ustring merge(const Components& base, const ustring& referencePath) {
  if (base.authority && base.path.empty()) return u"/" + referencePath;
  const std::size_t slash = base.path.rfind(u'/');
  if (slash == ustring::npos) return referencePath;
  return base.path.substr(0, slash + 1) + referencePath;
}

}  // namespace

URI::URI(const ustring& text) {
  ustring out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t at = i;
    const char32_t cp = nextCodePoint(text, i, "URI");
    if (cp > 0x7F) {
      appendPercentEncodedUtf8(out, cp);
      continue;
    }
    const auto c = static_cast<char16_t>(cp);
    if (c == u'%') {
      if (at + 2 >= text.size() || !isHexDigit(text[at + 1]) || !isHexDigit(text[at + 2])) {
        throw Exception("invalid URI '" + narrow(text) + "': '%' not followed by two hex digits");
      }
      out += u'%';
      out += static_cast<char16_t>(std::toupper(static_cast<int>(text[at + 1])));
      out += static_cast<char16_t>(std::toupper(static_cast<int>(text[at + 2])));
      i = at + 3;
      continue;
    }
    if (!isUnreserved(c) && !isSubDelim(c) && !isGenDelim(c)) {
      throw Exception("invalid URI '" + narrow(text) + "': character " +
                      (c < 0x20 || c == 0x7F ? std::string("U+") + std::to_string(static_cast<int>(c))
                                             : "'" + std::string(1, static_cast<char>(c)) + "'") +
                      " is not allowed");
    }
    out += c;
  }
  text_ = std::move(out);
}

bool URI::isAbsolute() const {
  return split(text_).scheme.has_value();
}

ustring URI::getPath() const {
  return split(text_).path;
}

bool URI::hasQueryOrFragment() const {
  const Components c = split(text_);
  return c.query.has_value() || c.fragment.has_value();
}

URI URI::resolve(const URI& reference) const {
  const Components base = split(text_);
  const Components ref = split(reference.text_);
  Components target;
  if (ref.scheme) {
    target = ref;
    target.path = removeDotSegments(ref.path);
  } else {
    if (ref.authority) {
      target.authority = ref.authority;
      target.path = removeDotSegments(ref.path);
      target.query = ref.query;
    } else {
      if (ref.path.empty()) {
        target.path = base.path;
        target.query = ref.query ? ref.query : base.query;
      } else {
        target.path = removeDotSegments(ref.path[0] == u'/' ? ref.path : merge(base, ref.path));
        target.query = ref.query;
      }
      target.authority = base.authority;
    }
    target.scheme = base.scheme;
  }
  target.fragment = ref.fragment;
  return URI(join(target), Trusted{});
}

}  // namespace opc::model
