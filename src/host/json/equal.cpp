// Deep equality of host arrays.
#include <cmath>
#include <cstring>

#include "host/json/json.h"

namespace zvhost::json {

namespace {

bool isUnsetLike(const qxArray* a) {
  return a == nullptr || (qxGetClassID(a) == qxDOUBLE_CLASS && !qxIsComplex(a) &&
                          qxGetNumberOfDimensions(a) == 2 && qxGetM(a) == 0 && qxGetN(a) == 0);
}

template <class T>
bool sameFloats(const void* x, const void* y, std::size_t n) {
  for (std::size_t k = 0; k < n; ++k) {
    T a;
    T b;
    std::memcpy(&a, static_cast<const char*>(x) + k * sizeof(T), sizeof(T));
    std::memcpy(&b, static_cast<const char*>(y) + k * sizeof(T), sizeof(T));
    if (std::isnan(a) && std::isnan(b)) continue;
    if (std::memcmp(&a, &b, sizeof(T)) != 0) return false;
  }
  return true;
}

bool sameData(qxClassID id, const void* x, const void* y, std::size_t n, std::size_t size) {
  if (n == 0) return true;
  if (x == nullptr || y == nullptr) return x == y;
  if (id == qxDOUBLE_CLASS) return sameFloats<double>(x, y, n);
  if (id == qxSINGLE_CLASS) return sameFloats<float>(x, y, n);
  return std::memcmp(x, y, n * size) == 0;
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
  const std::size_t size = qxGetElementSize(a);
  return sameData(id, qxGetData(a), qxGetData(b), n, size) &&
         sameData(id, qxGetImagData(a), qxGetImagData(b), n, size);
}

}  // namespace zvhost::json
