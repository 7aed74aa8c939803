// Text between the contract's UTF-16 and Octave's character arrays, which hold UTF-8 bytes.
//
// Conversions are strict both ways: invalid UTF-8 in an Octave string and a lone surrogate in UTF-16
// text raise the binding's invalid-text error instead of being repaired; non-ASCII and astral
// characters round-trip exactly.
#include <cstring>
#include <string>
#include <string_view>

#include "foundation/i18n.h"
#include "host/matrix.h"
#include "host/octave/host_error.h"
#include "host/octave/octave_api.h"

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

ustring fromUtf8(std::string_view bytes) {
  try {
    return fl::i18n::from_utf8(bytes);
  } catch (const fl::i18n::conversion_error& e) {
    raise(errors::invalidText, std::string("Text is not valid UTF-8: ") + e.what());
  }
}

}  // namespace

extern "C" {

qxArray* qxCreateString(const char* utf8) {
  const std::string_view bytes = utf8 ? utf8 : "";
  (void)fromUtf8(bytes);  // only to refuse invalid text
  return charRow(bytes);
}

qxArray* qxCreateString_UTF16(const char16_t* text) {
  return charRow(toUtf8(text ? std::u16string_view(text) : std::u16string_view()));
}

}  // extern "C"

namespace matrix {

ustring get_ustring(const qxArray* a) {
  if (!qxIsChar(a)) {
    const std::string cls = a == nullptr ? "nothing" : qxGetClassName(a);
    raise(errors::notString, "Expected a character array, got " + cls + ".");
  }
  const auto count = static_cast<std::size_t>(mxGetNumberOfElements(mx(a)));
  if (count == 0) return {};
  return fromUtf8(std::string_view(mxGetChars(mx(a)), count));
}

unique_qxarray_ptr create(const char16_t* text, std::size_t size) {
  if (text == nullptr && size != 0) raise(errors::invalidText, "No text to make a character array from.");
  return unique_qxarray_ptr(charRow(toUtf8(std::u16string_view(text, size))));
}

qxArray* to_zorvan(unique_qxarray_ptr handle) { return handle.release(); }

void destroyArray(qxArray* a) { qxDestroyArray(a); }

}  // namespace matrix
