#pragma once
// Small builders shared by the host tests.
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/matrix.h"
#include "host/qx.h"
#include "host/reference/host_error.h"

namespace zvhost::testing {

using Owned = matrix::unique_qxarray_ptr;

// A numeric array of class id with the given dimensions and column-major values.
template <class T>
Owned numeric(qxClassID id, std::vector<qxSize> dims, std::initializer_list<T> values,
              std::initializer_list<T> imag = {}) {
  Owned a(qxCreateNumericArray(dims.size(), dims.data(), id, imag.size() ? qxCOMPLEX : qxREAL));
  if (values.size()) std::memcpy(qxGetData(a.get()), values.begin(), values.size() * sizeof(T));
  if (imag.size()) std::memcpy(qxGetImagData(a.get()), imag.begin(), imag.size() * sizeof(T));
  return a;
}

inline Owned text(const char16_t* s) { return Owned(qxCreateString_UTF16(s)); }

inline Owned structure(std::vector<qxSize> dims, std::vector<const char*> names) {
  return Owned(qxCreateStructArray(dims.size(), dims.data(), static_cast<int>(names.size()), names.data()));
}

inline Owned cells(std::vector<qxSize> dims) { return Owned(qxCreateCellArray(dims.size(), dims.data())); }

// The identifier of the host error that body raises, or "" when it raises none.
template <class Body>
std::string hostErrorOf(Body&& body) {
  try {
    body();
  } catch (const zvhost::reference::HostError& e) {
    return e.identifier();
  }
  return "";
}

}  // namespace zvhost::testing
