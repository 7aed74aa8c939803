#include "opc/model/part_name.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::model {

namespace {

using namespace opc::detail;

[[noreturn]] void invalid(std::string_view name, const char* rule) {
  throw Exception("invalid part name '" + std::string(name) + "': " + rule);
}

// What a byte of a name in URI form is to the grammar: one table read a byte.
enum ByteClass : unsigned char { kPchar, kSlash, kPercent, kRefused };
constexpr auto kClass = [] {
  std::array<ByteClass, 256> table{};
  table.fill(kRefused);
  for (char16_t c = 0; c < 0x80; ++c) {
    if (isUnreserved(c) || isSubDelim(c) || c == u':' || c == u'@') table[c] = kPchar;
  }
  table['/'] = kSlash;
  table['%'] = kPercent;
  return table;
}();

// Hex digit values by byte, -1 for the rest: names are mostly percent-encodings, read byte by byte.
constexpr auto kHex = [] {
  std::array<signed char, 256> table{};
  for (int c = 0; c < 256; ++c) table[c] = static_cast<signed char>(isHexDigit(static_cast<char16_t>(c)) ? hexValue(static_cast<char16_t>(c)) : -1);
  return table;
}();

// Octets a segment must not hold percent-encoded: '/', '\\' and the unreserved characters.
constexpr auto kNotEncodable = [] {
  std::array<bool, 256> table{};
  for (char16_t c = 0; c < 0x80; ++c) table[c] = c == u'/' || c == u'\\' || isUnreserved(c);
  return table;
}();

// The rule a name in URI form breaks, or nullptr; `lowerHex` tells whether a percent-encoding uses a
// lower-case hex digit (see upperCaseEncodings).
const char* checkGrammar(std::string_view name, bool& lowerHex) {
  if (name.empty()) return "it is empty";
  if (name[0] != '/') return "it does not start with '/'";
  if (name.back() == '/') return "it ends with '/'";
  std::size_t segmentStart = 1;
  const std::size_t size = name.size();
  for (std::size_t i = 1; i < size; ++i) {
    while (kClass[static_cast<unsigned char>(name[i])] == kPchar) {  // the run up to the next '/' or '%'
      if (++i == size) break;
    }
    if (i == size) break;
    const ByteClass c = kClass[static_cast<unsigned char>(name[i])];
    if (c == kSlash) {
      if (i == segmentStart) return "it has an empty segment";
      if (name[i - 1] == '.') return "a segment ends with '.'";
      segmentStart = i + 1;
    } else if (c == kPercent) {
      const auto highByte = static_cast<unsigned char>(i + 2 < size ? name[i + 1] : 0);
      const auto lowByte = static_cast<unsigned char>(i + 2 < size ? name[i + 2] : 0);
      const int high = kHex[highByte];
      const int low = kHex[lowByte];
      if ((high | low) < 0) return "'%' is not followed by two hex digits";
      const auto value = static_cast<unsigned char>(high * 16 + low);
      if (kNotEncodable[value]) {
        return value == '/' || value == '\\' ? "a segment holds a percent-encoded '/' or '\\'"
                                             : "a segment holds a percent-encoded unreserved character";
      }
      lowerHex |= highByte >= 'a' || lowByte >= 'a';
      i += 2;
    } else {
      return "it holds a character that a part name cannot hold unencoded";
    }
  }
  if (name.back() == '.') return "a segment ends with '.'";
  return nullptr;
}

// Percent-encodings use upper-case hex digits; the name passed checkGrammar.
void upperCaseEncodings(std::string& name) {
  for (std::size_t i = name.find('%'); i != std::string::npos; i = name.find('%', i + 3)) {
    name[i + 1] = "0123456789ABCDEF"[kHex[static_cast<unsigned char>(name[i + 1])]];
    name[i + 2] = "0123456789ABCDEF"[kHex[static_cast<unsigned char>(name[i + 2])]];
  }
}

}  // namespace

PartName::PartName(const ustring& name) {
  std::string uriForm;
  uriForm.reserve(name.size());
  for (std::size_t i = 0; i < name.size();) {
    const char32_t cp = nextCodePoint(name, i, "part name");
    if (cp > 0x7F) {
      appendPercentEncodedUtf8(uriForm, cp);
    } else {
      uriForm += static_cast<char>(cp);
    }
  }
  bool lowerHex = false;
  if (const char* defect = checkGrammar(uriForm, lowerHex)) invalid(narrow(name), defect);
  if (lowerHex) upperCaseEncodings(uriForm);
  name_ = std::move(uriForm);
}

PartName::PartName(std::string uriForm, Checked) : name_(std::move(uriForm)) {}

PartName PartName::fromZipItemName(std::string_view itemName) {
  // An ASCII name is its own URI form: only its grammar is checked. Bytes beyond ASCII break the
  // grammar, and such a name maps through its IRI.
  std::string name;
  name.reserve(itemName.size() + 1);
  name += '/';
  name += itemName;
  bool lowerHex = false;
  if (const char* defect = checkGrammar(name, lowerHex)) {
    if (isAscii(itemName)) {
      invalid(std::string_view(name), defect);
    }
    ustring iri(1, u'/');
    iri += fromUtf8(itemName, "ZIP item name '" + std::string(itemName) + "'");
    return PartName(iri);
  }
  if (lowerHex) upperCaseEncodings(name);
  return PartName(std::move(name), Checked{});
}

bool PartName::operator==(const PartName& other) const {
  return equalsIgnoreAsciiCase(std::string_view(name_), std::string_view(other.name_));
}

std::size_t PartNameKeyHash::operator()(std::string_view name) const {
  constexpr std::uint64_t kOnes = 0x0101010101010101ull;
  constexpr std::uint64_t kHigh = 0x8080808080808080ull;
  constexpr std::uint64_t kMultiplier = 0xff51afd7ed558ccdull;
  // Adds 0x20 to every byte from 'A' to 'Z'; no carry crosses a byte, bytes above 0x7F stay.
  const auto fold = [&](std::uint64_t word) {
    const std::uint64_t low = word & ~kHigh;
    const std::uint64_t upper = (low + (0x80 - 'A') * kOnes) & ~(low + (0x7F - 'Z') * kOnes) & ~word & kHigh;
    return word | (upper >> 2);
  };
  std::uint64_t hash = 0x9E3779B97F4A7C15ull ^ name.size();
  std::size_t i = 0;
  for (; i + 8 <= name.size(); i += 8) {
    std::uint64_t word;
    std::memcpy(&word, name.data() + i, 8);
    hash = (hash ^ fold(word)) * kMultiplier;
  }
  if (i < name.size()) {
    std::uint64_t word = 0;
    std::memcpy(&word, name.data() + i, name.size() - i);
    hash = (hash ^ fold(word)) * kMultiplier;
  }
  hash ^= hash >> 33;  // every bit reaches the low ones, which pick the bucket
  hash *= 0xc4ceb9fe1a85ec53ull;
  return static_cast<std::size_t>(hash ^ (hash >> 33));
}

bool PartNameKeyEqual::operator()(std::string_view a, std::string_view b) const noexcept {
  return equalsIgnoreAsciiCase(a, b);
}

std::string PartName::getZipItemName() const {
  return name_.substr(1);
}

URI PartName::getURI() const {
  return URI(getName());
}

std::string_view PartName::extensionView() const {
  const std::size_t dot = name_.rfind('.');
  if (dot == std::string::npos || name_.find('/', dot) != std::string::npos) return {};
  return std::string_view(name_).substr(dot + 1);
}

bool PartName::isRelationshipsPartName() const {
  const std::string_view name(name_);
  if (name.size() < 5 || !equalsIgnoreAsciiCase(name.substr(name.size() - 5), std::string_view(".rels"))) return false;
  const std::size_t last = name.rfind('/');
  if (last == 0) return false;
  const std::size_t previous = name.rfind('/', last - 1);
  return equalsIgnoreAsciiCase(name.substr(previous + 1, last - previous - 1), std::string_view("_rels"));
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
