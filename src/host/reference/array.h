#pragma once
// The reference host's array representation. Private to the reference host: everything else sees only
// the opaque qxArray of qx.h.
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "host/common/host_common.h"

namespace zvhost::reference::detail {

// Frees an array and its tree without asking whether a container holds it; containers use it on their
// own children, everybody else goes through qxDestroyArray.
void destroy(qxArray* a) noexcept;

struct Destroyer {
  void operator()(qxArray* a) const noexcept { destroy(a); }
};
using ArrayPtr = std::unique_ptr<qxArray, Destroyer>;

struct Field {
  std::string name;
  std::vector<ArrayPtr> values;  // one per element; null when unset
};

// What a structure or object holds besides its header: field names and values, and an object's class.
struct Record {
  std::string className;  // objects only
  std::vector<Field> fields;
};

}  // namespace zvhost::reference::detail

// One host array: this header, followed in the same allocation by its ndim dimensions and then by the
// elements of a numeric, char or logical array (real parts, then imaginary parts when complex) or by
// the slots of a cell array (qxArray*, owned, null when empty). A char row thus costs one allocation:
// a 70,000-file package is built from 140,000 argument strings, which must fit in the 100 MB budget of
// the build beside the package's own model. Made only by allocate; freed only by destroy.
struct qxArray_tag {
  const qxArray_tag* parent;  // the container holding it, which alone may free it
  qxSize count;               // elements: the product of the dimensions
  qxSize ndim;                // at least two, no trailing 1 beyond the second
  zvhost::reference::detail::Record* record;  // structures and objects only; owned
  qxClassID classID;
  bool complex;

  [[nodiscard]] qxSize* dims() const noexcept { return reinterpret_cast<qxSize*>(const_cast<qxArray_tag*>(this + 1)); }
  [[nodiscard]] std::byte* data() const noexcept { return reinterpret_cast<std::byte*>(dims() + ndim); }
  [[nodiscard]] qxArray_tag** slots() const noexcept { return reinterpret_cast<qxArray_tag**>(data()); }
};
static_assert(sizeof(qxArray_tag) == 40 && alignof(qxArray_tag) == alignof(qxSize),
              "a char row's header and dimensions in 56 bytes, its elements aligned behind them");

namespace zvhost::reference::detail {

// An array of classID with zeroed data or empty slots, its dimensions as a caller gives them (missing
// ones read as 1, trailing 1s beyond the second dropped). Raises the host's invalid-class error for
// missing dimensions and its out-of-memory error for sizes that cannot be allocated.
ArrayPtr allocate(qxClassID classID, qxSize ndim, const qxSize* dims, bool complex = false);
// Structure or object storage; raises a host error for bad field names.
ArrayPtr makeStruct(qxClassID classID, qxSize ndim, const qxSize* dims, int nfields, const char** names);

}  // namespace zvhost::reference::detail
