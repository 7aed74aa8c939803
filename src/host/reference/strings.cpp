// Character arrays from C strings.
#include <cstring>

#include "foundation/i18n.h"
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
