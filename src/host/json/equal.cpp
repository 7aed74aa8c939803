// Deep equality of host arrays.
#include <cmath>
#include <cstring>

#include "host/common/host_common.h"
#include "host/json/json.h"

namespace zvhost::json {

namespace {

// Floating-point elements by bits, except that any NaN equals any NaN.
bool sameData(qxClassID id, const void* x, const void* y, std::size_t n) {
  if (n == 0) return true;
  if (x == nullptr || y == nullptr) return x == y;
  return withElementType(id, [&]<class T>(T) {
    for (std::size_t k = 0; k < n; ++k) {
      const T a = elementAt<T>(x, k);
      const T b = elementAt<T>(y, k);
      if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(a) && std::isnan(b)) continue;
      }
      if (std::memcmp(&a, &b, sizeof(T)) != 0) return false;
    }
    return true;
  });
}

}  // namespace

bool arraysEqual(const qxArray* a, const qxArray* b) {
  if (isUnsetLike(a) || isUnsetLike(b)) return isUnsetLike(a) && isUnsetLike(b);
  const qxClassID id = qxGetClassID(a);
  if (id != qxGetClassID(b) || std::strcmp(qxGetClassName(a), qxGetClassName(b)) != 0) return false;
  const qxSize ndim = qxGetNumberOfDimensions(a);
  if (ndim != qxGetNumberOfDimensions(b) ||
      !std::equal(qxGetDimensions(a), qxGetDimensions(a) + ndim, qxGetDimensions(b))) {
    return false;
  }
  if (qxIsComplex(a) != qxIsComplex(b)) return false;
  const std::size_t n = qxGetNumberOfElements(a);
  if (id == qxCELL_CLASS) {
    for (std::size_t k = 0; k < n; ++k) {
      if (!arraysEqual(qxGetCell(a, k), qxGetCell(b, k))) return false;
    }
    return true;
  }
  if (id == qxSTRUCT_CLASS || id == qxOBJECT_CLASS) {
    const int fields = qxGetNumberOfFields(a);
    if (fields != qxGetNumberOfFields(b)) return false;
    for (int f = 0; f < fields; ++f) {
      if (std::strcmp(qxGetFieldNameByNumber(a, f), qxGetFieldNameByNumber(b, f)) != 0) return false;
    }
    for (std::size_t i = 0; i < n; ++i) {
      for (int f = 0; f < fields; ++f) {
        if (!arraysEqual(qxGetFieldByNumber(a, i, f), qxGetFieldByNumber(b, i, f))) return false;
      }
    }
    return true;
  }
  return sameData(id, qxGetData(a), qxGetData(b), n) && sameData(id, qxGetImagData(a), qxGetImagData(b), n);
}

}  // namespace zvhost::json
