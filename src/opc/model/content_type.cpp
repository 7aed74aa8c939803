#include "opc/model/content_type.h"

#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::model {

namespace {

using namespace opc::detail;

bool isTokenChar(char16_t c) {
  if (c <= 0x20 || c >= 0x7F) return false;
  switch (c) {
    case u'(': case u')': case u'<': case u'>': case u'@': case u',': case u';': case u':':
    case u'\\': case u'"': case u'/': case u'[': case u']': case u'?': case u'=': case u'{': case u'}':
      return false;
    default:
      return true;
  }
}

[[noreturn]] void invalid(const ustring& text, const char* why) {
  throw Exception("invalid content type '" + narrow(text) + "': " + why);
}

std::size_t token(const ustring& text, std::size_t i) {
  while (i < text.size() && isTokenChar(text[i])) ++i;
  return i;
}

}  // namespace

ContentType::ContentType(const ustring& text) {
  ustring key;
  std::size_t i = token(text, 0);
  if (i == 0) invalid(text, "no type");
  if (i == text.size() || text[i] != u'/') invalid(text, "no '/' after the type");
  std::size_t j = token(text, i + 1);
  if (j == i + 1) invalid(text, "no subtype");
  key = asciiLower(ustring_view(text).substr(0, j));
  while (j < text.size()) {
    if (text[j] != u';') invalid(text, "unexpected character after the subtype or a parameter");
    ++j;
    // White space may follow ';' but nothing may separate a parameter's name, '=' and value.
    while (j < text.size() && (text[j] == u' ' || text[j] == u'\t')) ++j;
    const std::size_t nameEnd = token(text, j);
    if (nameEnd == j) invalid(text, "a parameter has no name");
    if (nameEnd == text.size() || text[nameEnd] != u'=') invalid(text, "a parameter has no '='");
    std::size_t valueEnd;
    if (nameEnd + 1 < text.size() && text[nameEnd + 1] == u'"') {
      valueEnd = nameEnd + 2;
      for (;;) {
        if (valueEnd >= text.size()) invalid(text, "an unterminated quoted string");
        const char16_t c = text[valueEnd];
        if (c == u'\\') {
          if (valueEnd + 1 >= text.size() || text[valueEnd + 1] > 0x7F) invalid(text, "a bad escape");
          valueEnd += 2;
          continue;
        }
        if (c == u'"') {
          ++valueEnd;
          break;
        }
        if (c > 0x7F || (c < 0x20 && c != u'\t') || c == 0x7F) invalid(text, "a bad character in a quoted string");
        ++valueEnd;
      }
    } else {
      valueEnd = token(text, nameEnd + 1);
      if (valueEnd == nameEnd + 1) invalid(text, "a parameter has no value");
    }
    key += u';';
    key += asciiLower(ustring_view(text).substr(j, nameEnd - j));
    key += ustring_view(text).substr(nameEnd, valueEnd - nameEnd);
    j = valueEnd;
  }
  data_ = new Data(text, std::move(key));
}

}  // namespace opc::model
