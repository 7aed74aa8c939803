#pragma once
// The reference host's array representation. Private to the reference host: everything else sees only
// the opaque qxArray of qx.h.
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/qx.h"

namespace zvhost::reference::detail {

struct ChildDeleter {
  void operator()(qxArray* a) const noexcept;
};
// A value held by a container. Only containers own arrays this way; everybody else uses qxDestroyArray.
using Child = std::unique_ptr<qxArray, ChildDeleter>;

struct Field {
  std::string name;
  std::vector<Child> values;  // one per element; null when unset
};

}  // namespace zvhost::reference::detail

// One host array. Exactly one of the storage groups is in use, chosen by classID:
// numeric, char and logical arrays use real (and imag when complex); cells use cells; structures and
// objects use fields.
struct qxArray_tag {
  qxClassID classID = qxDOUBLE_CLASS;
  std::string className;         // objects only
  std::vector<qxSize> dims;      // at least two, no trailing 1 beyond the second
  bool complex = false;
  const qxArray_tag* parent = nullptr;  // the container holding it, which alone may free it
  std::vector<std::byte> real;
  std::vector<std::byte> imag;
  std::vector<zvhost::reference::detail::Child> cells;
  std::vector<zvhost::reference::detail::Field> fields;
};

namespace zvhost::reference::detail {

// Pads to two dimensions with 1 and drops trailing 1s beyond the second.
std::vector<qxSize> normalizeDims(qxSize ndim, const qxSize* dims);
// Raises the host's out-of-memory error when the product does not fit.
qxSize elementCount(const std::vector<qxSize>& dims);
// Bytes per element of a data-holding class; 0 for containers and unknown classes.
std::size_t elementSize(qxClassID classID);
bool isNumericClass(qxClassID classID);
bool isIdentifier(std::string_view name);

// Makes an array of classID with zeroed data or empty slots; raises a host error on impossible sizes.
std::unique_ptr<qxArray> makeArray(qxClassID classID, std::vector<qxSize> dims, bool complex = false);
// Structure or object storage; raises a host error for bad field names.
std::unique_ptr<qxArray> makeStruct(qxClassID classID, std::vector<qxSize> dims, int nfields,
                                    const char** names);
// The copy and its parts belong to no container yet.
std::unique_ptr<qxArray> duplicate(const qxArray& a);
// Copies element i of a into a new 1x1 array of the same class.
std::unique_ptr<qxArray> copyElement(const qxArray& a, qxSize i);

}  // namespace zvhost::reference::detail
