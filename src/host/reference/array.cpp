// Creation, copying, destruction and queries of reference host arrays.
#include "host/reference/array.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <unordered_set>

#include "host/reference/host_error.h"

namespace zvhost::reference::detail {

namespace {

[[noreturn]] void raiseOutOfMemory() {
  raise(errors::outOfMemory, "Out of memory: the requested array is too large.");
}

// Bytes that follow the header: the elements of a data-holding class, the slots of a cell array.
qxSize trailingBytes(qxClassID classID, bool complex, qxSize count) {
  std::size_t size = elementSize(classID);
  if (classID == qxCELL_CLASS) size = sizeof(qxArray*);
  qxSize bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes) || (complex && __builtin_mul_overflow(bytes, 2, &bytes)) ||
      __builtin_add_overflow(bytes, sizeof(qxArray), &bytes)) {
    raiseOutOfMemory();
  }
  return bytes - sizeof(qxArray);
}

// A zeroed header with its trailing storage; the caller fills in the rest. Allocation failures become
// the host's out-of-memory error.
ArrayPtr allocate(qxClassID classID, bool complex, qxSize count, qxSize trailing, qxSize ndim,
                  const qxSize* heapDims) {
  void* memory = std::calloc(1, sizeof(qxArray) + trailing);
  if (memory == nullptr) raiseOutOfMemory();
  ArrayPtr a(::new (memory) qxArray);
  a->parent = nullptr;
  a->count = count;
  a->ndim = static_cast<std::uint32_t>(ndim);
  a->classID = classID;
  a->complex = complex;
  a->record = nullptr;
  if (ndim > 2) {
    auto* dims = static_cast<qxSize*>(std::malloc(ndim * sizeof(qxSize)));
    if (dims == nullptr) raiseOutOfMemory();
    std::memcpy(dims, heapDims, ndim * sizeof(qxSize));
    a->heapDims = dims;
  }
  return a;
}

ArrayPtr allocate(qxClassID classID, const Shape& shape, bool complex, qxSize count) {
  const qxSize trailing = trailingBytes(classID, complex, count);
  if (shape.size() <= 2) {
    ArrayPtr a = allocate(classID, complex, count, trailing, 2, nullptr);
    a->inlineDims[0] = shape[0];
    a->inlineDims[1] = shape[1];
    return a;
  }
  if (shape.size() > UINT32_MAX) raiseOutOfMemory();
  std::vector<qxSize> dims(shape.size());
  for (qxSize k = 0; k < shape.size(); ++k) dims[k] = shape[k];
  return allocate(classID, complex, count, trailing, shape.size(), dims.data());
}

std::unique_ptr<Record> makeRecord() {
  try {
    return std::make_unique<Record>();
  } catch (const std::bad_alloc&) {
    raiseOutOfMemory();
  }
}

void resizeValues(Field& f, qxSize count) {
  try {
    f.values.resize(count);
  } catch (const std::bad_alloc&) {
    raiseOutOfMemory();
  } catch (const std::length_error&) {
    raiseOutOfMemory();
  }
}

ArrayPtr copyChild(const qxArray* c, const qxArray* parent) {
  if (c == nullptr) return nullptr;
  ArrayPtr copy = duplicate(*c);
  copy->parent = parent;
  return copy;
}

}  // namespace

void destroy(qxArray* a) noexcept {
  if (a == nullptr) return;
  if (a->classID == qxCELL_CLASS) {
    qxArray** slots = a->slots();
    for (qxSize k = 0; k < a->count; ++k) destroy(slots[k]);
  }
  delete a->record;
  if (a->ndim > 2) std::free(a->heapDims);
  std::free(a);
}

Shape::Shape(qxSize ndim, const qxSize* dims) {
  if (ndim > 0 && dims == nullptr) raise(errors::invalidClass, "Dimensions are missing.");
  if (ndim > 0) m_ = dims[0];
  if (ndim > 1) n_ = dims[1];
  rest_ = dims;
  ndim_ = ndim;
  while (ndim_ > 2 && dims[ndim_ - 1] == 1) --ndim_;
  if (ndim_ < 2) ndim_ = 2;
}

qxSize Shape::elementCount() const {
  qxSize count = 1;
  for (qxSize k = 0; k < ndim_; ++k) {
    if (__builtin_mul_overflow(count, (*this)[k], &count)) {
      raise(errors::outOfMemory, "Requested array exceeds the maximum possible size.");
    }
  }
  return count;
}

std::size_t elementSize(qxClassID classID) {
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
    case qxCHAR_CLASS:
      return 2;
    case qxINT8_CLASS:
    case qxUINT8_CLASS:
      return 1;
    case qxLOGICAL_CLASS:
      return sizeof(qxLogical);
    default:
      return 0;
  }
}

bool isNumericClass(qxClassID classID) {
  return classID >= qxDOUBLE_CLASS && classID <= qxUINT64_CLASS;
}

bool isIdentifier(std::string_view name) {
  auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  auto digit = [](char c) { return c >= '0' && c <= '9'; };
  if (name.empty() || !letter(name.front())) return false;
  for (char c : name) {
    if (!letter(c) && !digit(c) && c != '_') return false;
  }
  return true;
}

ArrayPtr makeArray(qxClassID classID, const Shape& shape, bool complex) {
  if (elementSize(classID) == 0 && classID != qxCELL_CLASS) {
    raise(errors::invalidClass, "This class cannot be created here.");
  }
  if (complex && !isNumericClass(classID)) raise(errors::invalidClass, "Only numeric arrays can be complex.");
  return allocate(classID, shape, complex, shape.elementCount());
}

ArrayPtr makeStruct(qxClassID classID, const Shape& shape, int nfields, const char** names) {
  if (nfields < 0 || (nfields > 0 && names == nullptr)) {
    raise(errors::invalidFieldName, "Field names are missing.");
  }
  const qxSize count = shape.elementCount();
  std::unordered_set<std::string_view> seen;
  for (int i = 0; i < nfields; ++i) {
    const char* name = names[i];
    if (name == nullptr || !isIdentifier(name)) {
      raise(errors::invalidFieldName, std::string("Invalid field name \"") + (name ? name : "") + "\".",
            {std::string(name ? name : "")});
    }
    if (!seen.insert(name).second) {
      raise(errors::invalidFieldName, std::string("Duplicate field name \"") + name + "\".",
            {std::string(name)});
    }
  }
  ArrayPtr a = allocate(classID, shape, false, count);
  a->record = makeRecord().release();
  try {
    a->record->fields.reserve(static_cast<std::size_t>(nfields));
    for (int i = 0; i < nfields; ++i) a->record->fields.push_back(Field{names[i], {}});
  } catch (const std::bad_alloc&) {
    raiseOutOfMemory();
  }
  for (Field& f : a->record->fields) resizeValues(f, count);
  return a;
}

ArrayPtr duplicate(const qxArray& a) {
  const qxSize trailing = trailingBytes(a.classID, a.complex, a.count);
  ArrayPtr copy = allocate(a.classID, a.complex, a.count, trailing, a.ndim, a.dims());
  if (a.ndim <= 2) std::memcpy(copy->inlineDims, a.inlineDims, sizeof a.inlineDims);
  if (a.classID == qxCELL_CLASS) {
    for (qxSize k = 0; k < a.count; ++k) copy->slots()[k] = copyChild(a.slots()[k], copy.get()).release();
  } else if (trailing != 0) {
    std::memcpy(copy->data(), a.data(), trailing);
  }
  if (a.record != nullptr) {
    copy->record = makeRecord().release();
    copy->record->className = a.record->className;
    copy->record->fields.reserve(a.record->fields.size());
    for (const Field& f : a.record->fields) {
      Field& g = copy->record->fields.emplace_back(Field{f.name, {}});
      g.values.reserve(f.values.size());
      for (const ArrayPtr& v : f.values) g.values.push_back(copyChild(v.get(), copy.get()));
    }
  }
  return copy;
}

ArrayPtr copyElement(const qxArray& a, qxSize i) {
  const Shape one(1, 1);
  ArrayPtr e = allocate(a.classID, one, a.complex, 1);
  if (a.classID == qxCELL_CLASS) {
    e->slots()[0] = copyChild(a.slots()[i], e.get()).release();
  } else if (std::size_t size = elementSize(a.classID); size != 0) {
    std::memcpy(e->data(), a.data() + i * size, size);
    if (a.complex) std::memcpy(e->data() + size, a.data() + (a.count + i) * size, size);
  }
  if (a.record != nullptr) {
    e->record = makeRecord().release();
    e->record->className = a.record->className;
    for (const Field& f : a.record->fields) {
      Field& g = e->record->fields.emplace_back(Field{f.name, {}});
      g.values.push_back(copyChild(f.values[i].get(), e.get()));
    }
  }
  return e;
}

}  // namespace zvhost::reference::detail

using namespace zvhost::reference;
using namespace zvhost::reference::detail;

namespace {

bool hasFields(const qxArray* a) {
  return a != nullptr && (a->classID == qxSTRUCT_CLASS || a->classID == qxOBJECT_CLASS);
}

}  // namespace

extern "C" {

qxArray* qxCreateDoubleScalar(double value) {
  auto a = makeArray(qxDOUBLE_CLASS, Shape(1, 1));
  std::memcpy(a->data(), &value, sizeof value);
  return a.release();
}

qxArray* qxCreateLogicalScalar(bool value) {
  auto a = makeArray(qxLOGICAL_CLASS, Shape(1, 1));
  const qxLogical v = value;
  std::memcpy(a->data(), &v, sizeof v);
  return a.release();
}

qxArray* qxCreateNumericMatrix(qxSize m, qxSize n, qxClassID classID, qxComplexity complexity) {
  const qxSize dims[] = {m, n};
  return qxCreateNumericArray(2, dims, classID, complexity);
}

qxArray* qxCreateNumericArray(qxSize ndim, const qxSize* dims, qxClassID classID, qxComplexity complexity) {
  if (!isNumericClass(classID)) {
    raise(errors::invalidClass, std::string("Not a numeric class: ") + zvhost::builtinClassName(classID) + ".");
  }
  return makeArray(classID, Shape(ndim, dims), complexity == qxCOMPLEX).release();
}

qxArray* qxCreateLogicalArray(qxSize ndim, const qxSize* dims) {
  return makeArray(qxLOGICAL_CLASS, Shape(ndim, dims)).release();
}

qxArray* qxCreateCharArray(qxSize ndim, const qxSize* dims) {
  return makeArray(qxCHAR_CLASS, Shape(ndim, dims)).release();
}

qxArray* qxCreateCellArray(qxSize ndim, const qxSize* dims) {
  return makeArray(qxCELL_CLASS, Shape(ndim, dims)).release();
}

qxArray* qxCreateStructArray(qxSize ndim, const qxSize* dims, int nfields, const char** names) {
  return makeStruct(qxSTRUCT_CLASS, Shape(ndim, dims), nfields, names).release();
}

qxArray* qxCreateObjectArray(const char* className, qxSize ndim, const qxSize* dims, int nfields,
                             const char** names) {
  if (className == nullptr || !isIdentifier(className)) {
    raise(errors::invalidClass, std::string("Invalid class name \"") + (className ? className : "") + "\".");
  }
  auto a = makeStruct(qxOBJECT_CLASS, Shape(ndim, dims), nfields, names);
  try {
    a->record->className = className;
  } catch (const std::bad_alloc&) {
    raise(errors::outOfMemory, "Out of memory: the requested array is too large.");
  }
  return a.release();
}

qxArray* qxDuplicateArray(const qxArray* a) { return a ? duplicate(*a).release() : nullptr; }

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
  return zvhost::builtinClassName(qxGetClassID(a));
}

bool qxIsStruct(const qxArray* a) { return qxGetClassID(a) == qxSTRUCT_CLASS; }
bool qxIsObject(const qxArray* a) { return qxGetClassID(a) == qxOBJECT_CLASS; }
bool qxIsCell(const qxArray* a) { return qxGetClassID(a) == qxCELL_CLASS; }
bool qxIsChar(const qxArray* a) { return qxGetClassID(a) == qxCHAR_CLASS; }
bool qxIsLogical(const qxArray* a) { return qxGetClassID(a) == qxLOGICAL_CLASS; }
bool qxIsNumeric(const qxArray* a) { return isNumericClass(qxGetClassID(a)); }
bool qxIsComplex(const qxArray* a) { return a != nullptr && a->complex; }
bool qxIsEmpty(const qxArray* a) { return qxGetNumberOfElements(a) == 0; }

qxSize qxGetNumberOfElements(const qxArray* a) {
  return a ? a->count : 0;
}

qxSize qxGetNumberOfDimensions(const qxArray* a) { return a ? a->ndim : 0; }
const qxSize* qxGetDimensions(const qxArray* a) { return a ? a->dims() : nullptr; }
qxSize qxGetM(const qxArray* a) { return a ? a->dims()[0] : 0; }

qxSize qxGetN(const qxArray* a) {
  if (a == nullptr) return 0;
  qxSize n = 1;
  for (std::size_t k = 1; k < a->ndim; ++k) n *= a->dims()[k];
  return n;
}

void* qxGetData(const qxArray* a) {
  if (a == nullptr || a->count == 0 || elementSize(a->classID) == 0) return nullptr;
  return a->data();
}

void* qxGetImagData(const qxArray* a) {
  if (a == nullptr || !a->complex || a->count == 0) return nullptr;
  return a->data() + a->count * elementSize(a->classID);
}

qxSize qxGetElementSize(const qxArray* a) { return a ? elementSize(a->classID) : 0; }

double qxGetScalar(const qxArray* a) {
  const void* p = qxGetData(a);
  if (p == nullptr) return 0.0;
  auto read = [p]<class T>(T) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return static_cast<double>(v);
  };
  switch (a->classID) {
    case qxDOUBLE_CLASS: return read(double{});
    case qxSINGLE_CLASS: return read(float{});
    case qxINT8_CLASS: return read(std::int8_t{});
    case qxUINT8_CLASS: return read(std::uint8_t{});
    case qxINT16_CLASS: return read(std::int16_t{});
    case qxUINT16_CLASS: return read(std::uint16_t{});
    case qxINT32_CLASS: return read(std::int32_t{});
    case qxUINT32_CLASS: return read(std::uint32_t{});
    case qxINT64_CLASS: return read(std::int64_t{});
    case qxUINT64_CLASS: return read(std::uint64_t{});
    case qxCHAR_CLASS: return read(qxChar{});
    case qxLOGICAL_CLASS: return read(qxLogical{});
    default: return 0.0;
  }
}

int qxGetNumberOfFields(const qxArray* a) { return hasFields(a) ? static_cast<int>(a->record->fields.size()) : 0; }

const char* qxGetFieldNameByNumber(const qxArray* a, int n) {
  if (!hasFields(a) || n < 0 || static_cast<std::size_t>(n) >= a->record->fields.size()) return nullptr;
  return a->record->fields[n].name.c_str();
}

int qxGetFieldNumber(const qxArray* a, const char* name) {
  if (!hasFields(a) || name == nullptr) return -1;
  const std::vector<Field>& fields = a->record->fields;
  for (std::size_t k = 0; k < fields.size(); ++k) {
    if (fields[k].name == name) return static_cast<int>(k);
  }
  return -1;
}

qxArray* qxGetFieldByNumber(const qxArray* a, qxIndex i, int n) {
  if (!hasFields(a) || n < 0 || static_cast<std::size_t>(n) >= a->record->fields.size()) return nullptr;
  const Field& f = a->record->fields[n];
  return i < f.values.size() ? f.values[i].get() : nullptr;
}

qxArray* qxGetField(const qxArray* a, qxIndex i, const char* name) {
  return qxGetFieldByNumber(a, i, qxGetFieldNumber(a, name));
}

int qxAddField(qxArray* a, const char* name) {
  if (!hasFields(a) || name == nullptr || !isIdentifier(name)) return -1;
  if (int n = qxGetFieldNumber(a, name); n >= 0) return n;
  try {
    Field f{name, {}};
    f.values.resize(a->count);
    a->record->fields.push_back(std::move(f));
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return static_cast<int>(a->record->fields.size() - 1);
}

}  // extern "C"
