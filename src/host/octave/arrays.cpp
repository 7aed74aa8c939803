// Creation, copying, destruction and queries of host arrays over Octave's extension interface.
//
// Arrays made here are Octave's: Octave keeps a list of the arrays made during an extension call and
// frees, when the call ends, every one that was neither returned nor stored in a container, so a
// leaked array lives until the end of the call, never longer. Copies of objects are the exception
// (see fromValue): their owner must free them, as the contract requires anyway.
#include <limits>
#include <string>
#include <vector>

#include "host/common/host_common.h"
#include "host/octave/objects.h"

// The contract numbers its classes as Octave does, so that a class id converts by a cast.
static_assert(static_cast<int>(mxCELL_CLASS) == static_cast<int>(qxCELL_CLASS) &&
              static_cast<int>(mxFUNCTION_CLASS) == static_cast<int>(qxFUNCTION_CLASS));

namespace zvhost {

// Taken by Octave, as a(k) is in its language, so that objects and every class keep Octave's indexing.
qxArray* copyElement(const qxArray* a, qxSize index) {
  const octave_value element = mxArray::as_octave_value(octave::mx(a)).single_subsref(
      "(", octave_value_list(octave_value(static_cast<double>(index + 1))));
  return octave::qx(octave::fromValue(element));
}

}  // namespace zvhost

using namespace zvhost;
using namespace zvhost::octave;

namespace {

// The contract's dimensions as Octave takes them: padded to two with 1, trailing 1s beyond the second
// dropped. Raises the binding's out-of-memory error when a dimension or the element count is beyond what
// Octave can index.
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

qxArray* created(mxArray* a) {
  if (a == nullptr) raise(errors::outOfMemory, "Out of memory: the requested array could not be made.");
  return qx(a);
}

// An array made by Octave's create(ndim, dims) with the contract's dimensions.
template <class Create>
qxArray* createWith(qxSize ndim, const qxSize* dims, Create create) {
  const auto d = octaveDims(ndim, dims);
  return created(create(static_cast<mwSize>(d.size()), d.data()));
}

}  // namespace

extern "C" {

qxArray* qxCreateDoubleScalar(double value) { return created(mxCreateDoubleScalar(value)); }

qxArray* qxCreateLogicalScalar(bool value) { return created(mxCreateLogicalScalar(value ? 1 : 0)); }

qxArray* qxCreateNumericArray(qxSize ndim, const qxSize* dims, qxClassID classID, qxComplexity complexity) {
  if (!isNumericClass(classID)) {
    raise(errors::invalidClass, std::string("Not a numeric class: ") + zvhost::builtinClassName(classID) + ".");
  }
  return createWith(ndim, dims, [&](mwSize n, const mwSize* d) {
    return mxCreateNumericArray(n, d, static_cast<mxClassID>(classID), complexity == qxCOMPLEX ? mxCOMPLEX : mxREAL);
  });
}

qxArray* qxCreateLogicalArray(qxSize ndim, const qxSize* dims) { return createWith(ndim, dims, mxCreateLogicalArray); }

qxArray* qxCreateCharArray(qxSize ndim, const qxSize* dims) { return createWith(ndim, dims, mxCreateCharArray); }

qxArray* qxCreateCellArray(qxSize ndim, const qxSize* dims) { return createWith(ndim, dims, mxCreateCellArray); }

qxArray* qxCreateStructArray(qxSize ndim, const qxSize* dims, int nfields, const char** names) {
  checkFieldNames(nfields, names);
  return createWith(ndim, dims, [&](mwSize n, const mwSize* d) { return mxCreateStructArray(n, d, nfields, names); });
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
  const mxClassID id = mxGetClassID(mx(a));
  if (id >= mxCELL_CLASS && id <= mxFUNCTION_CLASS) return static_cast<qxClassID>(id);
  return isObject(mx(a)) ? qxOBJECT_CLASS : qxUNKNOWN_CLASS;
}

const char* qxGetClassName(const qxArray* a) {
  return a == nullptr ? zvhost::builtinClassName(qxUNKNOWN_CLASS) : mxGetClassName(mx(a));
}

bool qxIsComplex(const qxArray* a) { return a != nullptr && mxIsComplex(mx(a)); }

qxSize qxGetNumberOfElements(const qxArray* a) { return a ? mxGetNumberOfElements(mx(a)) : 0; }

qxSize qxGetNumberOfDimensions(const qxArray* a) { return a ? static_cast<qxSize>(mxGetNumberOfDimensions(mx(a))) : 0; }

// Octave's sizes are signed 64-bit and never negative, so the same storage reads as qxSize.
const qxSize* qxGetDimensions(const qxArray* a) {
  return a ? reinterpret_cast<const qxSize*>(mxGetDimensions(mx(a))) : nullptr;
}

// Character data is Octave's: UTF-8 bytes, one per element. Text is read with matrix::get_ustring.
void* qxGetData(const qxArray* a) {
  if (zvhost::elementSize(qxGetClassID(a)) == 0 || qxIsEmpty(a)) return nullptr;
  return mxGetData(mx(a));
}

void* qxGetImagData(const qxArray* a) {
  if (!qxIsComplex(a) || qxIsEmpty(a)) return nullptr;
  return mxGetImagData(mx(a));
}

double qxGetScalar(const qxArray* a) {
  if (qxGetData(a) == nullptr) return 0.0;
  return mxGetScalar(mx(a));
}

}  // extern "C"
