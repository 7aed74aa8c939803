#pragma once
// The host's C++ helpers over host arrays, and the host's way of raising errors. Like qx.h, declared
// here and defined by whoever loads the add-on library.
//
// Raising: every function that raises a host error (get_ustring on a non-character value, the error_*
// functions, do_legacy_qx_error) leaves its caller by an exception that only the host catches, at the
// boundary of the extension call. Code between must therefore hold its resources by scope.
#include <cstddef>
#include <memory>

#include "foundation/except.h"
#include "foundation/ustring.h"
#include "host/qx.h"

namespace matrix {

// The text of a character array, every code unit in storage order. Raises the host error for text
// expected when a is null or not a character array; never crashes.
QX_API ustring get_ustring(const qxArray* a);

struct ArrayDeleter {
  void operator()(qxArray* a) const noexcept { qxDestroyArray(a); }
};
using unique_qxarray_ptr = std::unique_ptr<qxArray, ArrayDeleter>;

// A 1 x size character array of text[0 .. size), embedded nulls included.
QX_API unique_qxarray_ptr create(const char16_t* text, std::size_t size);
// Releases ownership to the caller, typically into an output slot.
QX_API qxArray* to_zorvan(unique_qxarray_ptr handle);
QX_API void destroyArray(qxArray* a);

namespace detail {
[[noreturn]] QX_API void error_maxlhs();  // too many outputs requested
[[noreturn]] QX_API void error_maxrhs();  // too many inputs
[[noreturn]] QX_API void error_minrhs();  // not enough inputs
// Raises the host error carrying e's identifier, message arguments and formatted text. Does not return
// in the reference host; a caller must still be ready for it to return (a host may defer raising).
QX_API void do_legacy_qx_error(const foundation::core::except::IUserException& e);
}  // namespace detail

}  // namespace matrix
