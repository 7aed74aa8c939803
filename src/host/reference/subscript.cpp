// Element reference by scalar subscripts, as the host's language evaluates a(i) or a(i, j, ...).
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "host/reference/array.h"
#include "host/reference/host_error.h"

using namespace zvhost::reference;
using namespace zvhost::reference::detail;

namespace {

template <class T>
T load(const qxArray& a) {
  T v;
  std::memcpy(&v, a.data(), sizeof v);
  return v;
}

[[noreturn]] void bad() { raise(errors::badSubscript, "Subscripts must be real positive integer scalars."); }

// The 1-based position a subscript names. Integer classes are read exactly (a uint64 index may exceed
// what a double holds).
qxSize position(const qxArray* s) {
  if (s == nullptr || !isNumericClass(s->classID) || s->complex || qxGetNumberOfElements(s) != 1) bad();
  auto fromSigned = [&](std::int64_t v) -> qxSize {
    if (v < 1) bad();
    return static_cast<qxSize>(v);
  };
  auto fromFloat = [&](double v) -> qxSize {
    // 2^64 is the first value that does not fit.
    if (!(v >= 1.0) || v >= 18446744073709551616.0 || std::trunc(v) != v) bad();
    return static_cast<qxSize>(v);
  };
  switch (s->classID) {
    case qxDOUBLE_CLASS: return fromFloat(load<double>(*s));
    case qxSINGLE_CLASS: return fromFloat(load<float>(*s));
    case qxINT8_CLASS: return fromSigned(load<std::int8_t>(*s));
    case qxINT16_CLASS: return fromSigned(load<std::int16_t>(*s));
    case qxINT32_CLASS: return fromSigned(load<std::int32_t>(*s));
    case qxINT64_CLASS: return fromSigned(load<std::int64_t>(*s));
    case qxUINT8_CLASS: return fromSigned(load<std::uint8_t>(*s));
    case qxUINT16_CLASS: return fromSigned(load<std::uint16_t>(*s));
    case qxUINT32_CLASS: return fromSigned(load<std::uint32_t>(*s));
    default: {
      const auto v = load<std::uint64_t>(*s);
      if (v < 1) bad();
      return v;
    }
  }
}

[[noreturn]] void outOfBounds(qxSize index, qxSize extent) {
  raise(errors::indexOutOfBounds,
        "Index exceeds array bounds: index " + std::to_string(index) + ", size " + std::to_string(extent) + ".",
        {static_cast<std::int64_t>(index), static_cast<std::int64_t>(extent)});
}

}  // namespace

extern "C" qxArray* qxSubscriptedReference(const qxArray* a, int count, const qxArray** subscripts) {
  if (a == nullptr || count < 1 || subscripts == nullptr) {
    raise(errors::badSubscript, "A subscripted reference needs an array and at least one subscript.");
  }
  if (elementSize(a->classID) == 0 && a->classID != qxCELL_CLASS && a->classID != qxSTRUCT_CLASS &&
      a->classID != qxOBJECT_CLASS) {
    raise(errors::badSubscript, "This class cannot be subscripted.");
  }
  // With fewer subscripts than dimensions, the last subscript runs over all remaining dimensions.
  const auto n = static_cast<std::size_t>(count);
  qxSize linear = 0;
  qxSize stride = 1;
  for (std::size_t k = 0; k < n; ++k) {
    qxSize extent = 1;
    if (k + 1 < n) {
      extent = k < a->ndim ? a->dims()[k] : 1;
    } else {
      for (std::size_t d = k; d < a->ndim; ++d) extent *= a->dims()[d];
    }
    const qxSize p = position(subscripts[k]);
    if (p > extent) outOfBounds(p, extent);
    linear += (p - 1) * stride;
    stride *= extent;
  }
  return copyElement(*a, linear).release();
}
