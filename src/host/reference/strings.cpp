// Character arrays from C strings.
#include <cstring>
#include <optional>
#include <string_view>

#include "foundation/i18n.h"
#include "host/common/utf8.h"
#include "host/reference/array.h"
#include "host/reference/host_error.h"

using namespace zvhost::reference;

namespace {

qxArray* fromUnits(const char16_t* units, std::size_t size) {
  auto a = detail::makeArray(qxCHAR_CLASS, detail::Shape(1, size));
  if (size != 0) std::memcpy(a->data(), units, size * sizeof(char16_t));
  return a.release();
}

}  // namespace

extern "C" {

qxArray* qxCreateString(const char* utf8) {
  const std::string_view view = utf8 ? utf8 : "";
  if (const std::optional<std::size_t> length = zvhost::utf8::utf16Length(view)) {
    auto a = detail::makeArray(qxCHAR_CLASS, detail::Shape(1, *length));
    if (*length != 0) zvhost::utf8::decode(view, reinterpret_cast<char16_t*>(a->data()));
    return a.release();
  }
  // Refused: the checked converter says why.
  ustring text;
  try {
    text = fl::i18n::from_utf8(utf8 ? utf8 : "");
  } catch (const fl::i18n::conversion_error& e) {
    raise(errors::invalidText, std::string("Text is not valid UTF-8: ") + e.what());
  }
  return fromUnits(text.data(), text.size());
}

qxArray* qxCreateString_UTF16(const char16_t* text) {
  const std::size_t size = text ? std::char_traits<char16_t>::length(text) : 0;
  return fromUnits(text, size);
}

}  // extern "C"
