#include "opc/model/part_name.h"

#include <algorithm>
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
}

PartName::PartName(ustring uriForm, Checked) : name_(std::move(uriForm)) {}

PartName PartName::fromZipItemName(std::string_view itemName) {
  bool ascii = true;
  for (const char c : itemName) {
    if (static_cast<unsigned char>(c) > 0x7F) ascii = false;
  }
  if (!ascii) return PartName(u"/" + fromUtf8(itemName, "ZIP item name '" + std::string(itemName) + "'"));
  // ASCII needs no encoding: the URI form is the name itself, only its grammar is checked.
  ustring name;
  name.reserve(itemName.size() + 1);
  name += u'/';
  for (const char c : itemName) name += static_cast<char16_t>(c);
  if (itemName.find('%') == std::string_view::npos) {
    checkGrammar(name, name);  // nothing to upper-case, so the text in messages stays as given
  } else {
    const ustring original = name;
    checkGrammar(name, original);
  }
  return PartName(std::move(name), Checked{});
}

ustring PartName::getKey() const {
  return asciiLower(name_);
}

bool PartName::operator==(const PartName& other) const {
  return equalsIgnoreAsciiCase(name_, other.name_);
}

bool PartName::operator<(const PartName& other) const {
  const std::size_t n = std::min(name_.size(), other.name_.size());
  for (std::size_t i = 0; i < n; ++i) {
    const char16_t a = asciiLower(name_[i]);
    const char16_t b = asciiLower(other.name_[i]);
    if (a != b) return a < b;
  }
  return name_.size() < other.name_.size();
}

bool PartNameKeyEqual::operator()(ustring_view a, ustring_view b) const noexcept {
  return equalsIgnoreAsciiCase(a, b);
}

std::string PartName::getZipItemName() const {
  std::string out(name_.size() - 1, '\0');
  for (std::size_t i = 1; i < name_.size(); ++i) out[i - 1] = static_cast<char>(name_[i]);
  return out;
}

URI PartName::getURI() const {
  return URI(name_);
}

ustring_view PartName::extensionView() const {
  const std::size_t slash = name_.rfind(u'/');
  const std::size_t dot = name_.rfind(u'.');
  if (dot == ustring::npos || dot < slash) return {};
  return ustring_view(name_).substr(dot + 1);
}

bool PartName::isRelationshipsPartName() const {
  const ustring_view name(name_);
  const std::size_t last = name.rfind(u'/');
  if (name.size() < 5 || !equalsIgnoreAsciiCase(name.substr(name.size() - 5), u".rels")) return false;
  if (last == 0) return false;
  const std::size_t previous = name.rfind(u'/', last - 1);
  return equalsIgnoreAsciiCase(name.substr(previous + 1, last - previous - 1), u"_rels");
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
