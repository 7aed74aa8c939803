// Creation, copying, destruction and queries of reference host arrays.
#include "host/reference/array.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <cstring>

namespace zvhost::reference::detail {

namespace {

[[noreturn]] void raiseOutOfMemory() {
  raise(errors::outOfMemory, "Out of memory: the requested array is too large.");
}

// Runs f, turning the standard library's allocation failures into the host's out-of-memory error.
template <class F>
void orOutOfMemory(F&& f) {
  try {
    f();
  } catch (const std::bad_alloc&) {
    raiseOutOfMemory();
  } catch (const std::length_error&) {
    raiseOutOfMemory();
  }
}

void adoptChild(ArrayPtr& slot, const qxArray* child, const qxArray* parent);

// A copy of a belonging to no container; `element` < count copies that element alone into a 1x1 array.
ArrayPtr copy(const qxArray& a, qxSize element = ~qxSize{0}) {
  const bool whole = element >= a.count;
  const qxSize first = whole ? 0 : element;
  ArrayPtr c = whole ? allocate(a.classID, a.ndim, a.dims(), a.complex) : allocate(a.classID, 0, nullptr, a.complex);
  if (a.classID == qxCELL_CLASS) {
    for (qxSize k = 0; k < c->count; ++k) {
      ArrayPtr child;
      adoptChild(child, a.slots()[first + k], c.get());
      c->slots()[k] = child.release();
    }
  } else if (const std::size_t size = elementSize(a.classID); size != 0) {
    for (int part = 0; part < (a.complex ? 2 : 1); ++part) {
      std::memcpy(c->data() + part * c->count * size, a.data() + (part * a.count + first) * size, c->count * size);
    }
  }
  if (a.record != nullptr) {
    orOutOfMemory([&] { c->record = new Record{a.record->className, {}}; });
    for (const Field& f : a.record->fields) {
      Field& g = c->record->fields.emplace_back(Field{f.name, {}});
      g.values.resize(c->count);
      for (qxSize i = 0; i < c->count; ++i) adoptChild(g.values[i], f.values[first + i].get(), c.get());
    }
  }
  return c;
}

void adoptChild(ArrayPtr& slot, const qxArray* child, const qxArray* parent) {
  if (child == nullptr) return;
  slot = copy(*child);
  slot->parent = parent;
}

}  // namespace

void destroy(qxArray* a) noexcept {
  if (a == nullptr) return;
  if (a->classID == qxCELL_CLASS) {
    for (qxSize k = 0; k < a->count; ++k) destroy(a->slots()[k]);
  }
  delete a->record;
  std::free(a);
}

ArrayPtr allocate(qxClassID classID, qxSize ndim, const qxSize* dims, bool complex) {
  if (ndim > 0 && dims == nullptr) raise(errors::invalidClass, "Dimensions are missing.");
  qxSize kept = ndim;
  while (kept > 2 && dims[kept - 1] == 1) --kept;
  kept = std::max<qxSize>(kept, 2);
  auto dim = [&](qxSize k) { return k < ndim ? dims[k] : 1; };
  qxSize count = 1;
  for (qxSize k = 0; k < kept; ++k) {
    if (__builtin_mul_overflow(count, dim(k), &count)) {
      raise(errors::outOfMemory, "Requested array exceeds the maximum possible size.");
    }
  }
  const std::size_t size = classID == qxCELL_CLASS ? sizeof(qxArray*) : elementSize(classID);
  qxSize bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes) || (complex && __builtin_mul_overflow(bytes, 2, &bytes)) ||
      __builtin_add_overflow(bytes, sizeof(qxArray), &bytes) || kept > (SIZE_MAX - bytes) / sizeof(qxSize)) {
    raiseOutOfMemory();
  }
  void* memory = std::calloc(1, bytes + kept * sizeof(qxSize));
  if (memory == nullptr) raiseOutOfMemory();
  ArrayPtr a(::new (memory) qxArray{nullptr, count, kept, nullptr, classID, complex});
  for (qxSize k = 0; k < kept; ++k) a->dims()[k] = dim(k);
  return a;
}

ArrayPtr makeStruct(qxClassID classID, qxSize ndim, const qxSize* dims, int nfields, const char** names) {
  checkFieldNames(nfields, names);
  ArrayPtr a = allocate(classID, ndim, dims);
  orOutOfMemory([&] {
    a->record = new Record;
    for (int i = 0; i < nfields; ++i) a->record->fields.push_back(Field{names[i], std::vector<ArrayPtr>(a->count)});
  });
  return a;
}

}  // namespace zvhost::reference::detail

namespace zvhost {
qxArray* copyElement(const qxArray* a, qxSize index) { return reference::detail::copy(*a, index).release(); }
}  // namespace zvhost

using namespace zvhost;
using namespace zvhost::reference::detail;

namespace {

bool hasFields(const qxArray* a) {
  return a != nullptr && (a->classID == qxSTRUCT_CLASS || a->classID == qxOBJECT_CLASS);
}

const Field* fieldOf(const qxArray* a, int n) {
  if (!hasFields(a) || n < 0 || static_cast<std::size_t>(n) >= a->record->fields.size()) return nullptr;
  return &a->record->fields[n];
}

}  // namespace

extern "C" {

qxArray* qxCreateDoubleScalar(double value) {
  auto a = allocate(qxDOUBLE_CLASS, 0, nullptr);
  std::memcpy(a->data(), &value, sizeof value);
  return a.release();
}

qxArray* qxCreateLogicalScalar(bool value) {
  auto a = allocate(qxLOGICAL_CLASS, 0, nullptr);
  const qxLogical v = value;
  std::memcpy(a->data(), &v, sizeof v);
  return a.release();
}

qxArray* qxCreateNumericArray(qxSize ndim, const qxSize* dims, qxClassID classID, qxComplexity complexity) {
  if (!isNumericClass(classID)) {
    raise(errors::invalidClass, std::string("Not a numeric class: ") + builtinClassName(classID) + ".");
  }
  return allocate(classID, ndim, dims, complexity == qxCOMPLEX).release();
}

qxArray* qxCreateLogicalArray(qxSize ndim, const qxSize* dims) { return allocate(qxLOGICAL_CLASS, ndim, dims).release(); }
qxArray* qxCreateCharArray(qxSize ndim, const qxSize* dims) { return allocate(qxCHAR_CLASS, ndim, dims).release(); }
qxArray* qxCreateCellArray(qxSize ndim, const qxSize* dims) { return allocate(qxCELL_CLASS, ndim, dims).release(); }

qxArray* qxCreateStructArray(qxSize ndim, const qxSize* dims, int nfields, const char** names) {
  return makeStruct(qxSTRUCT_CLASS, ndim, dims, nfields, names).release();
}

qxArray* qxCreateObjectArray(const char* className, qxSize ndim, const qxSize* dims, int nfields,
                             const char** names) {
  if (className == nullptr || !isIdentifier(className)) {
    raise(errors::invalidClass, std::string("Invalid class name \"") + (className ? className : "") + "\".");
  }
  auto a = makeStruct(qxOBJECT_CLASS, ndim, dims, nfields, names);
  orOutOfMemory([&] { a->record->className = className; });
  return a.release();
}

qxArray* qxDuplicateArray(const qxArray* a) { return a ? copy(*a).release() : nullptr; }

void qxDestroyArray(qxArray* a) {
  if (a == nullptr) return;
  if (a->parent != nullptr) {
    // Freeing it would leave its container with a dangling slot: stop before memory is corrupted.
    std::fputs("zvhost: qxDestroyArray on an array still held by a container\n", stderr);
    std::abort();
  }
  destroy(a);
}

qxClassID qxGetClassID(const qxArray* a) { return a ? a->classID : qxUNKNOWN_CLASS; }

const char* qxGetClassName(const qxArray* a) {
  if (a != nullptr && a->classID == qxOBJECT_CLASS) return a->record->className.c_str();
  return builtinClassName(qxGetClassID(a));
}

bool qxIsComplex(const qxArray* a) { return a != nullptr && a->complex; }
qxSize qxGetNumberOfElements(const qxArray* a) { return a ? a->count : 0; }
qxSize qxGetNumberOfDimensions(const qxArray* a) { return a ? a->ndim : 0; }
const qxSize* qxGetDimensions(const qxArray* a) { return a ? a->dims() : nullptr; }

void* qxGetData(const qxArray* a) {
  if (a == nullptr || a->count == 0 || elementSize(a->classID) == 0) return nullptr;
  return a->data();
}

void* qxGetImagData(const qxArray* a) {
  if (a == nullptr || !a->complex || a->count == 0) return nullptr;
  return a->data() + a->count * elementSize(a->classID);
}

double qxGetScalar(const qxArray* a) {
  const void* p = qxGetData(a);
  if (p == nullptr) return 0.0;
  return withElementType(a->classID, [p]<class T>(T) { return static_cast<double>(elementAt<T>(p, 0)); });
}

int qxGetNumberOfFields(const qxArray* a) { return hasFields(a) ? static_cast<int>(a->record->fields.size()) : 0; }

const char* qxGetFieldNameByNumber(const qxArray* a, int n) {
  const Field* f = fieldOf(a, n);
  return f ? f->name.c_str() : nullptr;
}

int qxGetFieldNumber(const qxArray* a, const char* name) {
  for (int n = 0; name != nullptr && n < qxGetNumberOfFields(a); ++n) {
    if (a->record->fields[n].name == name) return n;
  }
  return -1;
}

qxArray* qxGetFieldByNumber(const qxArray* a, qxIndex i, int n) {
  const Field* f = fieldOf(a, n);
  return f && i < f->values.size() ? f->values[i].get() : nullptr;
}

}  // extern "C"
