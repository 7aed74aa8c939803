// Element reference by scalar subscripts. The subscripts are checked here, with the same rules and
// errors as in every host of the library; the element itself is then taken by Octave, as a(k) is in
// Octave's language, so objects and every class keep Octave's own indexing.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "host/octave/arrays.h"
#include "host/octave/host_error.h"
#include "host/octave/objects.h"

using namespace zvhost::octave;
using namespace zvhost::octave::detail;

namespace {

[[noreturn]] void bad() { raise(errors::badSubscript, "Subscripts must be real positive integer scalars."); }

template <class T>
T load(const qxArray* s) {
  T v;
  std::memcpy(&v, qxGetData(s), sizeof v);
  return v;
}

// The 1-based position a subscript names. Integer classes are read exactly (a uint64 index may exceed
// what a double holds).
qxSize position(const qxArray* s) {
  if (!qxIsNumeric(s) || qxIsComplex(s) || qxGetNumberOfElements(s) != 1) bad();
  auto fromSigned = [](std::int64_t v) -> qxSize {
    if (v < 1) bad();
    return static_cast<qxSize>(v);
  };
  auto fromFloat = [](double v) -> qxSize {
    // 2^64 is the first value that does not fit.
    if (!(v >= 1.0) || v >= 18446744073709551616.0 || std::trunc(v) != v) bad();
    return static_cast<qxSize>(v);
  };
  switch (qxGetClassID(s)) {
    case qxDOUBLE_CLASS: return fromFloat(load<double>(s));
    case qxSINGLE_CLASS: return fromFloat(load<float>(s));
    case qxINT8_CLASS: return fromSigned(load<std::int8_t>(s));
    case qxINT16_CLASS: return fromSigned(load<std::int16_t>(s));
    case qxINT32_CLASS: return fromSigned(load<std::int32_t>(s));
    case qxINT64_CLASS: return fromSigned(load<std::int64_t>(s));
    case qxUINT8_CLASS: return fromSigned(load<std::uint8_t>(s));
    case qxUINT16_CLASS: return fromSigned(load<std::uint16_t>(s));
    case qxUINT32_CLASS: return fromSigned(load<std::uint32_t>(s));
    default: {
      const auto v = load<std::uint64_t>(s);
      if (v < 1) bad();
      return v;
    }
  }
}

[[noreturn]] void outOfBounds(qxSize index, qxSize extent) {
  raise(errors::indexOutOfBounds,
        "Index exceeds array bounds: index " + std::to_string(index) + ", size " + std::to_string(extent) + ".");
}

bool subscriptable(qxClassID classID) {
  return elementSize(classID) != 0 || classID == qxCELL_CLASS || classID == qxSTRUCT_CLASS ||
         classID == qxOBJECT_CLASS;
}

}  // namespace

extern "C" qxArray* qxSubscriptedReference(const qxArray* a, int count, const qxArray** subscripts) {
  if (a == nullptr || count < 1 || subscripts == nullptr) {
    raise(errors::badSubscript, "A subscripted reference needs an array and at least one subscript.");
  }
  if (!subscriptable(qxGetClassID(a))) raise(errors::badSubscript, "This class cannot be subscripted.");
  // With fewer subscripts than dimensions, the last subscript runs over all remaining dimensions.
  const auto n = static_cast<qxSize>(count);
  const qxSize ndim = qxGetNumberOfDimensions(a);
  const qxSize* dims = qxGetDimensions(a);
  qxSize linear = 0;
  qxSize stride = 1;
  for (qxSize k = 0; k < n; ++k) {
    qxSize extent = 1;
    if (k + 1 < n) {
      extent = k < ndim ? dims[k] : 1;
    } else {
      for (qxSize d = k; d < ndim; ++d) extent *= dims[d];
    }
    const qxSize p = position(subscripts[k]);
    if (p > extent) outOfBounds(p, extent);
    linear += (p - 1) * stride;
    stride *= extent;
  }
  const octave_value element =
      mxArray::as_octave_value(mx(a)).single_subsref("(", octave_value_list(octave_value(double(linear + 1))));
  return qx(fromValue(element));
}
