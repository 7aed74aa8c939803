#pragma once
// The reference host's array representation. Private to the reference host: everything else sees only
// the opaque qxArray of qx.h.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/qx.h"

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

// One host array: this header, followed in the same allocation by the elements of a numeric, char or
// logical array (real parts, then imaginary parts when complex) or by the slots of a cell array
// (qxArray*, owned, null when empty). A char row thus costs one allocation. Structures and objects keep
// their fields in a Record of their own, as qxAddField grows them. Made only by makeArray, makeStruct,
// duplicate and copyElement; freed only by destroy.
struct qxArray_tag {
  const qxArray_tag* parent;  // the container holding it, which alone may free it
  qxSize count;               // elements: the product of the dimensions
  union {
    qxSize inlineDims[2];  // ndim == 2
    qxSize* heapDims;      // ndim > 2; owned
  };
  std::uint32_t ndim;  // at least two, no trailing 1 beyond the second
  qxClassID classID;
  bool complex;
  zvhost::reference::detail::Record* record;  // structures and objects only; owned

  [[nodiscard]] const qxSize* dims() const noexcept { return ndim > 2 ? heapDims : inlineDims; }
  [[nodiscard]] std::byte* data() const noexcept {
    return reinterpret_cast<std::byte*>(const_cast<qxArray_tag*>(this + 1));
  }
  [[nodiscard]] qxArray_tag** slots() const noexcept { return reinterpret_cast<qxArray_tag**>(data()); }
};

namespace zvhost::reference::detail {

// Dimensions as a caller gives them, read in place: missing ones read as 1 and trailing 1s beyond the
// second are dropped. Borrows dims, which must outlive it.
class Shape {
 public:
  Shape(qxSize m, qxSize n) noexcept : m_(m), n_(n) {}
  // Raises the host's invalid-class error when ndim > 0 and dims is null.
  Shape(qxSize ndim, const qxSize* dims);

  [[nodiscard]] qxSize size() const noexcept { return ndim_; }
  [[nodiscard]] qxSize operator[](qxSize k) const noexcept { return k == 0 ? m_ : k == 1 ? n_ : rest_[k]; }
  // Raises the host's out-of-memory error when the product does not fit.
  [[nodiscard]] qxSize elementCount() const;

 private:
  qxSize m_ = 1;
  qxSize n_ = 1;
  const qxSize* rest_ = nullptr;  // the caller's dims, read from index 2
  qxSize ndim_ = 2;
};

// Bytes per element of a data-holding class; 0 for containers and unknown classes.
std::size_t elementSize(qxClassID classID);
bool isNumericClass(qxClassID classID);
bool isIdentifier(std::string_view name);

// Makes an array of classID with zeroed data or empty slots; raises a host error on impossible sizes.
ArrayPtr makeArray(qxClassID classID, const Shape& shape, bool complex = false);
// Structure or object storage; raises a host error for bad field names.
ArrayPtr makeStruct(qxClassID classID, const Shape& shape, int nfields, const char** names);
// The copy and its parts belong to no container yet.
ArrayPtr duplicate(const qxArray& a);
// Copies element i of a into a new 1x1 array of the same class.
ArrayPtr copyElement(const qxArray& a, qxSize i);

}  // namespace zvhost::reference::detail
