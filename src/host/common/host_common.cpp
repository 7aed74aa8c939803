// The contract's functions that read the same over any host's primitives.
#include "host/common/host_common.h"

#include <cmath>
#include <type_traits>
#include <unordered_set>

#include "host/common/messages.h"
#include "host/matrix.h"

namespace zvhost {

void checkFieldNames(int nfields, const char** names) {
  if (nfields < 0 || (nfields > 0 && names == nullptr)) raise(errors::invalidFieldName, "Field names are missing.");
  std::unordered_set<std::string_view> seen;
  for (int i = 0; i < nfields; ++i) {
    const std::string name = names[i] ? names[i] : "";
    if (names[i] == nullptr || !isIdentifier(name)) {
      raise(errors::invalidFieldName, "Invalid field name \"" + name + "\".", {name});
    }
    if (!seen.insert(names[i]).second) raise(errors::invalidFieldName, "Duplicate field name \"" + name + "\".", {name});
  }
}

namespace {

[[noreturn]] void badSubscript() { raise(errors::badSubscript, "Subscripts must be real positive integer scalars."); }

// The 1-based position a subscript names. Integer classes are read exactly (a uint64 index may exceed
// what a double holds).
qxSize position(const qxArray* s) {
  if (!qxIsNumeric(s) || qxIsComplex(s) || qxGetNumberOfElements(s) != 1) badSubscript();
  return withElementType(qxGetClassID(s), [&]<class T>(T) {
    const T v = elementAt<T>(qxGetData(s), 0);
    if constexpr (std::is_floating_point_v<T>) {
      if (!(v >= 1) || v >= 18446744073709551616.0 || std::trunc(v) != v) badSubscript();  // 2^64
    } else if (v < 1) {
      badSubscript();
    }
    return static_cast<qxSize>(v);
  });
}

}  // namespace

}  // namespace zvhost

using namespace zvhost;

extern "C" {

qxArray* qxCreateNumericMatrix(qxSize m, qxSize n, qxClassID classID, qxComplexity complexity) {
  const qxSize dims[] = {m, n};
  return qxCreateNumericArray(2, dims, classID, complexity);
}

bool qxIsStruct(const qxArray* a) { return qxGetClassID(a) == qxSTRUCT_CLASS; }
bool qxIsObject(const qxArray* a) { return qxGetClassID(a) == qxOBJECT_CLASS; }
bool qxIsCell(const qxArray* a) { return qxGetClassID(a) == qxCELL_CLASS; }
bool qxIsChar(const qxArray* a) { return qxGetClassID(a) == qxCHAR_CLASS; }
bool qxIsLogical(const qxArray* a) { return qxGetClassID(a) == qxLOGICAL_CLASS; }
bool qxIsNumeric(const qxArray* a) { return isNumericClass(qxGetClassID(a)); }
bool qxIsEmpty(const qxArray* a) { return qxGetNumberOfElements(a) == 0; }

qxSize qxGetM(const qxArray* a) { return a ? qxGetDimensions(a)[0] : 0; }

qxSize qxGetN(const qxArray* a) {
  if (a == nullptr) return 0;
  qxSize n = 1;
  for (qxSize k = 1; k < qxGetNumberOfDimensions(a); ++k) n *= qxGetDimensions(a)[k];
  return n;
}

qxArray* qxGetField(const qxArray* a, qxIndex i, const char* name) {
  return qxGetFieldByNumber(a, i, qxGetFieldNumber(a, name));
}

qxArray* qxSubscriptedReference(const qxArray* a, int count, const qxArray** subscripts) {
  if (a == nullptr || count < 1 || subscripts == nullptr) {
    raise(errors::badSubscript, "A subscripted reference needs an array and at least one subscript.");
  }
  const qxClassID id = qxGetClassID(a);
  if (id == qxUNKNOWN_CLASS || id == qxVOID_CLASS || id == qxFUNCTION_CLASS) {
    raise(errors::badSubscript, "This class cannot be subscripted.");
  }
  // With fewer subscripts than dimensions, the last subscript runs over all remaining dimensions.
  const auto n = static_cast<qxSize>(count);
  const qxSize ndim = qxGetNumberOfDimensions(a);
  const qxSize* dims = qxGetDimensions(a);
  qxSize linear = 0;
  qxSize stride = 1;
  for (qxSize k = 0; k < n; ++k) {
    qxSize extent = k < ndim ? dims[k] : 1;
    for (qxSize d = k + 1; k + 1 == n && d < ndim; ++d) extent *= dims[d];
    const qxSize p = position(subscripts[k]);
    if (p > extent) {
      raise(errors::indexOutOfBounds,
            "Index exceeds array bounds: index " + std::to_string(p) + ", size " + std::to_string(extent) + ".",
            {static_cast<std::int64_t>(p), static_cast<std::int64_t>(extent)});
    }
    linear += (p - 1) * stride;
    stride *= extent;
  }
  return copyElement(a, linear);
}

}  // extern "C"

namespace matrix {

ustring get_ustring(const qxArray* a) {
  if (!qxIsChar(a)) {
    const std::string cls = a == nullptr ? "nothing" : qxGetClassName(a);
    raise(errors::notString, "Expected a character array, got " + cls + ".", {cls});
  }
  return textOf(a);
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
  raise(identifier.c_str(), formatMessage(message.catalog(), message.key(), message.arguments()),
        message.arguments());
}

}  // namespace detail
}  // namespace matrix
