// Creation, copying, destruction and queries of host arrays over Octave's extension interface.
//
// Arrays made here are Octave's: Octave keeps a list of the arrays made during an extension call and
// frees, when the call ends, every one that was neither returned nor stored in a container, so a
// leaked array lives until the end of the call, never longer. Copies of objects are the exception
// (see fromValue): their owner must free them, as the contract requires anyway.
#include "host/octave/arrays.h"

#include <cstdint>
#include <limits>
#include <string>
#include <unordered_set>

#include "host/octave/host_error.h"
#include "host/octave/objects.h"

namespace zvhost::octave::detail {

std::vector<mwSize> octaveDims(qxSize ndim, const qxSize* dims) {
  if (ndim > 0 && dims == nullptr) raise(errors::invalidClass, "Dimensions are missing.");
  constexpr auto limit = static_cast<qxSize>(std::numeric_limits<mwSize>::max());
  std::vector<mwSize> result;
  qxSize count = 1;
  for (qxSize k = 0; k < ndim; ++k) {
    if (dims[k] > limit || __builtin_mul_overflow(count, dims[k], &count) || count > limit) {
      raise(errors::outOfMemory, "Requested array exceeds the maximum possible size.");
    }
    result.push_back(static_cast<mwSize>(dims[k]));
  }
  while (result.size() < 2) result.push_back(1);
  while (result.size() > 2 && result.back() == 1) result.pop_back();
  return result;
}

mxClassID toOctave(qxClassID classID) {
  switch (classID) {
    case qxLOGICAL_CLASS: return mxLOGICAL_CLASS;
    case qxCHAR_CLASS: return mxCHAR_CLASS;
    case qxDOUBLE_CLASS: return mxDOUBLE_CLASS;
    case qxSINGLE_CLASS: return mxSINGLE_CLASS;
    case qxINT8_CLASS: return mxINT8_CLASS;
    case qxUINT8_CLASS: return mxUINT8_CLASS;
    case qxINT16_CLASS: return mxINT16_CLASS;
    case qxUINT16_CLASS: return mxUINT16_CLASS;
    case qxINT32_CLASS: return mxINT32_CLASS;
    case qxUINT32_CLASS: return mxUINT32_CLASS;
    case qxINT64_CLASS: return mxINT64_CLASS;
    case qxUINT64_CLASS: return mxUINT64_CLASS;
    default: return mxUNKNOWN_CLASS;
  }
}

bool isNumericClass(qxClassID classID) { return classID >= qxDOUBLE_CLASS && classID <= qxUINT64_CLASS; }

qxSize elementSize(qxClassID classID) {
  switch (classID) {
    case qxDOUBLE_CLASS:
    case qxINT64_CLASS:
    case qxUINT64_CLASS:
      return 8;
    case qxSINGLE_CLASS:
    case qxINT32_CLASS:
    case qxUINT32_CLASS:
      return 4;
    case qxINT16_CLASS:
    case qxUINT16_CLASS:
      return 2;
    case qxINT8_CLASS:
    case qxUINT8_CLASS:
    case qxCHAR_CLASS:
    case qxLOGICAL_CLASS:
      return 1;
    default:
      return 0;
  }
}

bool isIdentifier(const char* name) {
  auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (name == nullptr || !letter(*name)) return false;
  for (const char* p = name; *p != '\0'; ++p) {
    if (!letter(*p) && !digit(*p) && *p != '_') return false;
  }
  return true;
}

const mxArray* fieldStore(const qxArray* a) {
  if (a == nullptr) return nullptr;
  if (mxIsStruct(mx(a))) return mx(a);
  return objectView(mx(a));
}

}  // namespace zvhost::octave::detail

using namespace zvhost::octave;
using namespace zvhost::octave::detail;

namespace {

qxArray* created(mxArray* a) {
  if (a == nullptr) raise(errors::outOfMemory, "Out of memory: the requested array could not be made.");
  return qx(a);
}

}  // namespace

extern "C" {

qxArray* qxCreateDoubleScalar(double value) { return created(mxCreateDoubleScalar(value)); }

qxArray* qxCreateLogicalScalar(bool value) { return created(mxCreateLogicalScalar(value ? 1 : 0)); }

qxArray* qxCreateNumericMatrix(qxSize m, qxSize n, qxClassID classID, qxComplexity complexity) {
  const qxSize dims[] = {m, n};
  return qxCreateNumericArray(2, dims, classID, complexity);
}

qxArray* qxCreateNumericArray(qxSize ndim, const qxSize* dims, qxClassID classID, qxComplexity complexity) {
  if (!isNumericClass(classID)) {
    raise(errors::invalidClass, std::string("Not a numeric class: ") + zvhost::builtinClassName(classID) + ".");
  }
  const auto d = octaveDims(ndim, dims);
  return created(mxCreateNumericArray(static_cast<mwSize>(d.size()), d.data(), toOctave(classID),
                                      complexity == qxCOMPLEX ? mxCOMPLEX : mxREAL));
}

qxArray* qxCreateLogicalArray(qxSize ndim, const qxSize* dims) {
  const auto d = octaveDims(ndim, dims);
  return created(mxCreateLogicalArray(static_cast<mwSize>(d.size()), d.data()));
}

qxArray* qxCreateCharArray(qxSize ndim, const qxSize* dims) {
  const auto d = octaveDims(ndim, dims);
  return created(mxCreateCharArray(static_cast<mwSize>(d.size()), d.data()));
}

qxArray* qxCreateCellArray(qxSize ndim, const qxSize* dims) {
  const auto d = octaveDims(ndim, dims);
  return created(mxCreateCellArray(static_cast<mwSize>(d.size()), d.data()));
}

qxArray* qxCreateStructArray(qxSize ndim, const qxSize* dims, int nfields, const char** names) {
  if (nfields < 0 || (nfields > 0 && names == nullptr)) raise(errors::invalidFieldName, "Field names are missing.");
  std::unordered_set<std::string> seen;
  for (int i = 0; i < nfields; ++i) {
    const std::string name = names[i] ? names[i] : "";
    if (!isIdentifier(names[i])) raise(errors::invalidFieldName, "Invalid field name \"" + name + "\".");
    if (!seen.insert(name).second) raise(errors::invalidFieldName, "Duplicate field name \"" + name + "\".");
  }
  const auto d = octaveDims(ndim, dims);
  return created(mxCreateStructArray(static_cast<mwSize>(d.size()), d.data(), nfields, names));
}

// Octave makes objects only through their class's constructor, never from bare storage.
qxArray* qxCreateObjectArray(const char*, qxSize, const qxSize*, int, const char**) { return nullptr; }

qxArray* qxDuplicateArray(const qxArray* a) {
  if (a == nullptr) return nullptr;
  if (isObject(mx(a))) return qx(fromValue(mxArray::as_octave_value(mx(a))));
  return created(mxDuplicateArray(mx(a)));
}

void qxDestroyArray(qxArray* a) {
  if (a != nullptr) mxDestroyArray(mx(a));
}

qxClassID qxGetClassID(const qxArray* a) {
  if (a == nullptr) return qxUNKNOWN_CLASS;
  switch (mxGetClassID(mx(a))) {
    case mxCELL_CLASS: return qxCELL_CLASS;
    case mxSTRUCT_CLASS: return qxSTRUCT_CLASS;
    case mxLOGICAL_CLASS: return qxLOGICAL_CLASS;
    case mxCHAR_CLASS: return qxCHAR_CLASS;
    case mxVOID_CLASS: return qxVOID_CLASS;
    case mxDOUBLE_CLASS: return qxDOUBLE_CLASS;
    case mxSINGLE_CLASS: return qxSINGLE_CLASS;
    case mxINT8_CLASS: return qxINT8_CLASS;
    case mxUINT8_CLASS: return qxUINT8_CLASS;
    case mxINT16_CLASS: return qxINT16_CLASS;
    case mxUINT16_CLASS: return qxUINT16_CLASS;
    case mxINT32_CLASS: return qxINT32_CLASS;
    case mxUINT32_CLASS: return qxUINT32_CLASS;
    case mxINT64_CLASS: return qxINT64_CLASS;
    case mxUINT64_CLASS: return qxUINT64_CLASS;
    case mxFUNCTION_CLASS: return qxFUNCTION_CLASS;
    default: return isObject(mx(a)) ? qxOBJECT_CLASS : qxUNKNOWN_CLASS;
  }
}

const char* qxGetClassName(const qxArray* a) {
  return a == nullptr ? zvhost::builtinClassName(qxUNKNOWN_CLASS) : mxGetClassName(mx(a));
}

bool qxIsStruct(const qxArray* a) { return qxGetClassID(a) == qxSTRUCT_CLASS; }
bool qxIsObject(const qxArray* a) { return qxGetClassID(a) == qxOBJECT_CLASS; }
bool qxIsCell(const qxArray* a) { return qxGetClassID(a) == qxCELL_CLASS; }
bool qxIsChar(const qxArray* a) { return qxGetClassID(a) == qxCHAR_CLASS; }
bool qxIsLogical(const qxArray* a) { return qxGetClassID(a) == qxLOGICAL_CLASS; }
bool qxIsNumeric(const qxArray* a) { return isNumericClass(qxGetClassID(a)); }
bool qxIsComplex(const qxArray* a) { return a != nullptr && mxIsComplex(mx(a)); }
bool qxIsEmpty(const qxArray* a) { return qxGetNumberOfElements(a) == 0; }

qxSize qxGetNumberOfElements(const qxArray* a) { return a ? mxGetNumberOfElements(mx(a)) : 0; }

qxSize qxGetNumberOfDimensions(const qxArray* a) {
  return a ? static_cast<qxSize>(mxGetNumberOfDimensions(mx(a))) : 0;
}

// Octave's sizes are signed 64-bit and never negative, so the same storage reads as qxSize.
const qxSize* qxGetDimensions(const qxArray* a) {
  return a ? reinterpret_cast<const qxSize*>(mxGetDimensions(mx(a))) : nullptr;
}

qxSize qxGetM(const qxArray* a) { return a ? mxGetM(mx(a)) : 0; }

qxSize qxGetN(const qxArray* a) {
  const qxSize ndim = qxGetNumberOfDimensions(a);
  const qxSize* dims = qxGetDimensions(a);
  qxSize n = ndim > 0 ? 1 : 0;
  for (qxSize k = 1; k < ndim; ++k) n *= dims[k];
  return n;
}

// Character data is Octave's: UTF-8 bytes, one per element. Text is read with matrix::get_ustring.
void* qxGetData(const qxArray* a) {
  if (elementSize(qxGetClassID(a)) == 0 || qxIsEmpty(a)) return nullptr;
  return mxGetData(mx(a));
}

void* qxGetImagData(const qxArray* a) {
  if (!qxIsComplex(a) || qxIsEmpty(a)) return nullptr;
  return mxGetImagData(mx(a));
}

qxSize qxGetElementSize(const qxArray* a) { return elementSize(qxGetClassID(a)); }

double qxGetScalar(const qxArray* a) {
  if (qxGetData(a) == nullptr) return 0.0;
  return mxGetScalar(mx(a));
}

}  // extern "C"
