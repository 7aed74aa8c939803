// Text between the contract's UTF-16 and Octave's character arrays, which hold UTF-8 bytes.
//
// Conversions are strict both ways: invalid UTF-8 in an Octave string and a lone surrogate in UTF-16
// text raise the binding's invalid-text error instead of being repaired; non-ASCII and astral
// characters round-trip exactly.
#include <cstring>
#include <string>
#include <string_view>

#include "foundation/i18n.h"
#include "host/common/host_common.h"
#include "host/matrix.h"
#include "host/octave/octave_api.h"

using namespace zvhost;
using namespace zvhost::octave;

namespace {

// A 1xN character array holding exactly these bytes, embedded nulls included.
qxArray* charRow(std::string_view bytes) {
  const mwSize dims[] = {1, static_cast<mwSize>(bytes.size())};
  mxArray* a = mxCreateCharArray(2, dims);
  if (a == nullptr) raise(errors::outOfMemory, "Out of memory: the requested array could not be made.");
  if (!bytes.empty()) std::memcpy(mxGetChars(a), bytes.data(), bytes.size());
  return qx(a);
}

std::string toUtf8(std::u16string_view text) {
  try {
    return fl::i18n::to_utf8(text);
  } catch (const fl::i18n::conversion_error& e) {
    raise(errors::invalidText, std::string("Text cannot be given to Octave: ") + e.what());
  }
}

void requireUtf8(std::string_view bytes) {
  if (!fl::i18n::utf16_length(bytes)) raise(errors::invalidText, "Text is not valid UTF-8.");
}

}  // namespace

namespace zvhost {

ustring textOf(const qxArray* a) {
  const std::string_view bytes(mxGetChars(mx(a)), static_cast<std::size_t>(mxGetNumberOfElements(mx(a))));
  requireUtf8(bytes);
  return fl::i18n::from_utf8(bytes);
}

}  // namespace zvhost

extern "C" {

qxArray* qxCreateString(const char* utf8) {
  const std::string_view bytes = utf8 ? utf8 : "";
  requireUtf8(bytes);
  return charRow(bytes);
}

qxArray* qxCreateString_UTF16(const char16_t* text) {
  return charRow(toUtf8(text ? std::u16string_view(text) : std::u16string_view()));
}

}  // extern "C"

namespace matrix {

unique_qxarray_ptr create(const char16_t* text, std::size_t size) {
  if (text == nullptr && size != 0) raise(errors::invalidText, "No text to make a character array from.");
  return unique_qxarray_ptr(charRow(toUtf8(std::u16string_view(text, size))));
}

}  // namespace matrix
