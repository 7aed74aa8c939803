// Text in the reference host, which keeps char arrays as UTF-16 code units, and its raising of errors.
#include "host/matrix.h"

#include <cstring>
#include <optional>

#include "foundation/i18n.h"
#include "host/reference/array.h"
#include "host/reference/host_error.h"

using zvhost::reference::detail::allocate;

namespace zvhost {

void raise(const char* identifier, std::string message,
           std::vector<foundation::core::msg::MessageArgument> arguments) {
  throw reference::HostError(identifier, std::move(message), std::move(arguments));
}

ustring textOf(const qxArray* a) {
  return ustring(reinterpret_cast<const char16_t*>(a->data()), a->count);
}

}  // namespace zvhost

namespace {

qxArray* charRow(const char16_t* units, std::size_t size) {
  const qxSize dims[] = {1, size};
  auto a = allocate(qxCHAR_CLASS, 2, dims);
  if (size != 0) std::memcpy(a->data(), units, size * sizeof(char16_t));
  return a.release();
}

}  // namespace

extern "C" {

qxArray* qxCreateString(const char* utf8) {
  const std::string_view text = utf8 ? utf8 : "";
  const std::optional<std::size_t> length = fl::i18n::utf16_length(text);
  if (!length) zvhost::raise(zvhost::errors::invalidText, "Text is not valid UTF-8.");
  const qxSize dims[] = {1, *length};
  auto a = allocate(qxCHAR_CLASS, 2, dims);
  fl::i18n::decode_utf8(text, reinterpret_cast<char16_t*>(a->data()));
  return a.release();
}

qxArray* qxCreateString_UTF16(const char16_t* text) {
  return charRow(text, text ? std::char_traits<char16_t>::length(text) : 0);
}

}  // extern "C"

namespace matrix {

unique_qxarray_ptr create(const char16_t* text, std::size_t size) {
  if (text == nullptr && size != 0) zvhost::raise(zvhost::errors::invalidText, "No text to make a character array from.");
  return unique_qxarray_ptr(charRow(text, size));
}

}  // namespace matrix
