// The host's C++ helpers and its raising of errors.
#include "host/matrix.h"

#include <cstring>

#include "host/reference/array.h"
#include "host/reference/host_error.h"
#include "host/reference/messages.h"

using namespace zvhost::reference;

namespace matrix {

ustring get_ustring(const qxArray* a) {
  if (a == nullptr || a->classID != qxCHAR_CLASS) {
    const std::string cls = a == nullptr ? "nothing" : qxGetClassName(a);
    raise(errors::notString, "Expected a character array, got " + cls + ".", {cls});
  }
  ustring text(qxGetNumberOfElements(a), u'\0');
  if (!text.empty()) std::memcpy(text.data(), a->data(), text.size() * sizeof(char16_t));
  return text;
}

unique_qxarray_ptr create(const char16_t* text, std::size_t size) {
  if (text == nullptr && size != 0) raise(errors::invalidText, "No text to make a character array from.");
  auto a = zvhost::reference::detail::makeArray(qxCHAR_CLASS, zvhost::reference::detail::Shape(1, size));
  if (size != 0) std::memcpy(a->data(), text, size * sizeof(char16_t));
  return unique_qxarray_ptr(a.release());
}

qxArray* to_zorvan(unique_qxarray_ptr handle) { return handle.release(); }

void destroyArray(qxArray* a) { qxDestroyArray(a); }

namespace detail {

void error_maxlhs() { raise(errors::tooManyOutputs, "Too many output arguments."); }
void error_maxrhs() { raise(errors::tooManyInputs, "Too many input arguments."); }
void error_minrhs() { raise(errors::notEnoughInputs, "Not enough input arguments."); }

void do_legacy_qx_error(const foundation::core::except::IUserException& e) {
  const auto& message = e.GetBaseMsgIDObj();
  std::string identifier = e.GetID();
  if (identifier.empty()) identifier = message.catalog() + ":" + message.key();
  throw HostError(std::move(identifier), formatMessage(message.catalog(), message.key(), message.arguments()),
                  message.arguments());
}

}  // namespace detail
}  // namespace matrix
