#include "opc/model/part_name.h"

#include <cctype>

#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::model {

namespace {

using namespace opc::detail;

[[noreturn]] void invalid(const ustring& name, const char* rule) {
  throw Exception("invalid part name '" + narrow(name) + "': " + rule);
}

bool isPchar(char16_t c) {
  return isUnreserved(c) || isSubDelim(c) || c == u':' || c == u'@';
}

// Checks the grammar of a name already in URI form and upper-cases percent-encodings in place.
void checkGrammar(ustring& name, const ustring& original) {
  if (name.empty()) invalid(original, "it is empty");
  if (name[0] != u'/') invalid(original, "it does not start with '/'");
  if (name.back() == u'/') invalid(original, "it ends with '/'");
  std::size_t segmentStart = 1;
  for (std::size_t i = 1; i <= name.size(); ++i) {
    if (i == name.size() || name[i] == u'/') {
      if (i == segmentStart) invalid(original, "it has an empty segment");
      if (name[i - 1] == u'.') invalid(original, "a segment ends with '.'");
      segmentStart = i + 1;
      continue;
    }
    const char16_t c = name[i];
    if (c == u'%') {
      if (i + 2 >= name.size() || !isHexDigit(name[i + 1]) || !isHexDigit(name[i + 2])) {
        invalid(original, "'%' is not followed by two hex digits");
      }
      const auto value = static_cast<char16_t>(hexValue(name[i + 1]) * 16 + hexValue(name[i + 2]));
      if (value == u'/' || value == u'\\') invalid(original, "a segment holds a percent-encoded '/' or '\\'");
      if (isUnreserved(value)) invalid(original, "a segment holds a percent-encoded unreserved character");
      name[i + 1] = static_cast<char16_t>(std::toupper(static_cast<int>(name[i + 1])));
      name[i + 2] = static_cast<char16_t>(std::toupper(static_cast<int>(name[i + 2])));
      i += 2;
      continue;
    }
    if (!isPchar(c)) invalid(original, "it holds a character that a part name cannot hold unencoded");
  }
}

}  // namespace

PartName::PartName(const ustring& name) {
  ustring uriForm;
  uriForm.reserve(name.size());
  for (std::size_t i = 0; i < name.size();) {
    const char32_t cp = nextCodePoint(name, i, "part name");
    if (cp > 0x7F) {
      appendPercentEncodedUtf8(uriForm, cp);
    } else {
      uriForm += static_cast<char16_t>(cp);
    }
  }
  checkGrammar(uriForm, name);
  name_ = std::move(uriForm);
  key_ = asciiLower(name_);
}

PartName PartName::fromZipItemName(std::string_view itemName) {
  ustring name = u"/";
  bool ascii = true;
  for (const char c : itemName) {
    if (static_cast<unsigned char>(c) > 0x7F) ascii = false;
  }
  if (ascii) {
    name += widenAscii(itemName);
  } else {
    name += fromUtf8(itemName, "ZIP item name '" + std::string(itemName) + "'");
  }
  return PartName(name);
}

std::string PartName::getZipItemName() const {
  std::string out(name_.size() - 1, '\0');
  for (std::size_t i = 1; i < name_.size(); ++i) out[i - 1] = static_cast<char>(name_[i]);
  return out;
}

URI PartName::getURI() const {
  return URI(name_);
}

ustring PartName::getExtension() const {
  const std::size_t slash = name_.rfind(u'/');
  const std::size_t dot = name_.rfind(u'.');
  if (dot == ustring::npos || dot < slash) return {};
  return name_.substr(dot + 1);
}

bool PartName::isRelationshipsPartName() const {
  const std::size_t last = key_.rfind(u'/');
  if (key_.size() < 5 || key_.compare(key_.size() - 5, 5, u".rels") != 0) return false;
  if (last == 0) return false;
  const std::size_t previous = key_.rfind(u'/', last - 1);
  return key_.compare(previous + 1, last - previous - 1, u"_rels") == 0;
}

ustring PartName::encodeSegment(ustring_view text) {
  ustring out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const char32_t cp = nextCodePoint(text, i, "segment text");
    // ':' would read as a scheme at the start of a relative reference; the rest are delimiters
    // or characters outside pchar.
    if (cp <= 0x7F && (isUnreserved(static_cast<char16_t>(cp)) ||
                       isSubDelim(static_cast<char16_t>(cp)) || cp == u'@')) {
      out += static_cast<char16_t>(cp);
    } else {
      appendPercentEncodedUtf8(out, cp);
    }
  }
  return out;
}

ustring PartName::decodeSegment(ustring_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] == u'%') {
      if (i + 2 >= text.size() || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) {
        throw Exception("cannot decode '" + narrow(text) + "': '%' not followed by two hex digits");
      }
      bytes += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
      i += 3;
    } else {
      // Characters outside ASCII pass through as UTF-8, so a partly decoded IRI decodes too.
      const std::size_t start = i;
      (void)nextCodePoint(text, i, "segment text");
      bytes += narrow(text.substr(start, i - start));
    }
  }
  return fromUtf8(bytes, "decoded segment '" + narrow(text) + "'");
}

}  // namespace opc::model
