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

void ChildDeleter::operator()(qxArray* a) const noexcept { delete a; }

std::vector<qxSize> normalizeDims(qxSize ndim, const qxSize* dims) {
  std::vector<qxSize> result;
  if (ndim > 0 && dims == nullptr) raise(errors::invalidClass, "Dimensions are missing.");
  result.assign(dims, dims + ndim);
  while (result.size() < 2) result.push_back(1);
  while (result.size() > 2 && result.back() == 1) result.pop_back();
  return result;
}

qxSize elementCount(const std::vector<qxSize>& dims) {
  qxSize count = 1;
  for (qxSize d : dims) {
    if (__builtin_mul_overflow(count, d, &count)) {
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

namespace {

[[noreturn]] void raiseOutOfMemory() {
  raise(errors::outOfMemory, "Out of memory: the requested array is too large.");
}

// Sizes the storage of a fresh array; allocation failures become the host's out-of-memory error.
void allocate(qxArray& a, qxSize count) {
  try {
    if (std::size_t size = elementSize(a.classID); size != 0) {
      qxSize bytes = 0;
      if (__builtin_mul_overflow(count, size, &bytes)) raiseOutOfMemory();
      a.real.resize(bytes);
      if (a.complex) a.imag.resize(bytes);
    } else if (a.classID == qxCELL_CLASS) {
      a.cells.resize(count);
    } else {
      for (Field& f : a.fields) f.values.resize(count);
    }
  } catch (const std::bad_alloc&) {
    raiseOutOfMemory();
  } catch (const std::length_error&) {
    raiseOutOfMemory();
  }
}

Child copyChild(const Child& c, const qxArray* parent) {
  if (!c) return nullptr;
  Child copy(duplicate(*c).release());
  copy->parent = parent;
  return copy;
}

}  // namespace

std::unique_ptr<qxArray> makeArray(qxClassID classID, std::vector<qxSize> dims, bool complex) {
  if (elementSize(classID) == 0 && classID != qxCELL_CLASS) {
    raise(errors::invalidClass, "This class cannot be created here.");
  }
  if (complex && !isNumericClass(classID)) raise(errors::invalidClass, "Only numeric arrays can be complex.");
  const qxSize count = elementCount(dims);
  auto a = std::make_unique<qxArray>();
  a->classID = classID;
  a->dims = std::move(dims);
  a->complex = complex;
  allocate(*a, count);
  return a;
}

std::unique_ptr<qxArray> makeStruct(qxClassID classID, std::vector<qxSize> dims, int nfields,
                                    const char** names) {
  if (nfields < 0 || (nfields > 0 && names == nullptr)) {
    raise(errors::invalidFieldName, "Field names are missing.");
  }
  const qxSize count = elementCount(dims);
  auto a = std::make_unique<qxArray>();
  a->classID = classID;
  a->dims = std::move(dims);
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
    a->fields.push_back(Field{name, {}});
  }
  allocate(*a, count);
  return a;
}

std::unique_ptr<qxArray> duplicate(const qxArray& a) {
  auto copy = std::make_unique<qxArray>();
  copy->classID = a.classID;
  copy->className = a.className;
  copy->dims = a.dims;
  copy->complex = a.complex;
  copy->real = a.real;
  copy->imag = a.imag;
  copy->cells.reserve(a.cells.size());
  for (const Child& c : a.cells) copy->cells.push_back(copyChild(c, copy.get()));
  copy->fields.reserve(a.fields.size());
  for (const Field& f : a.fields) {
    Field& g = copy->fields.emplace_back(Field{f.name, {}});
    g.values.reserve(f.values.size());
    for (const Child& v : f.values) g.values.push_back(copyChild(v, copy.get()));
  }
  return copy;
}

std::unique_ptr<qxArray> copyElement(const qxArray& a, qxSize i) {
  auto e = std::make_unique<qxArray>();
  e->classID = a.classID;
  e->className = a.className;
  e->dims = {1, 1};
  e->complex = a.complex;
  if (std::size_t size = elementSize(a.classID); size != 0) {
    e->real.assign(a.real.begin() + i * size, a.real.begin() + (i + 1) * size);
    if (a.complex) e->imag.assign(a.imag.begin() + i * size, a.imag.begin() + (i + 1) * size);
  } else if (a.classID == qxCELL_CLASS) {
    e->cells.push_back(copyChild(a.cells[i], e.get()));
  } else {
    for (const Field& f : a.fields) {
      Field& g = e->fields.emplace_back(Field{f.name, {}});
      g.values.push_back(copyChild(f.values[i], e.get()));
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
  auto a = makeArray(qxDOUBLE_CLASS, {1, 1});
  std::memcpy(a->real.data(), &value, sizeof value);
  return a.release();
}

qxArray* qxCreateLogicalScalar(bool value) {
  auto a = makeArray(qxLOGICAL_CLASS, {1, 1});
  const qxLogical v = value;
  std::memcpy(a->real.data(), &v, sizeof v);
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
  return makeArray(classID, normalizeDims(ndim, dims), complexity == qxCOMPLEX).release();
}

qxArray* qxCreateLogicalArray(qxSize ndim, const qxSize* dims) {
  return makeArray(qxLOGICAL_CLASS, normalizeDims(ndim, dims)).release();
}

qxArray* qxCreateCharArray(qxSize ndim, const qxSize* dims) {
  return makeArray(qxCHAR_CLASS, normalizeDims(ndim, dims)).release();
}

qxArray* qxCreateCellArray(qxSize ndim, const qxSize* dims) {
  return makeArray(qxCELL_CLASS, normalizeDims(ndim, dims)).release();
}

qxArray* qxCreateStructArray(qxSize ndim, const qxSize* dims, int nfields, const char** names) {
  return makeStruct(qxSTRUCT_CLASS, normalizeDims(ndim, dims), nfields, names).release();
}

qxArray* qxCreateObjectArray(const char* className, qxSize ndim, const qxSize* dims, int nfields,
                             const char** names) {
  if (className == nullptr || !isIdentifier(className)) {
    raise(errors::invalidClass, std::string("Invalid class name \"") + (className ? className : "") + "\".");
  }
  auto a = makeStruct(qxOBJECT_CLASS, normalizeDims(ndim, dims), nfields, names);
  a->className = className;
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
  delete a;
}

qxClassID qxGetClassID(const qxArray* a) { return a ? a->classID : qxUNKNOWN_CLASS; }

const char* qxGetClassName(const qxArray* a) {
  if (a != nullptr && a->classID == qxOBJECT_CLASS) return a->className.c_str();
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
  if (a == nullptr) return 0;
  qxSize count = 1;
  for (qxSize d : a->dims) count *= d;  // checked when the array was made
  return count;
}

qxSize qxGetNumberOfDimensions(const qxArray* a) { return a ? a->dims.size() : 0; }
const qxSize* qxGetDimensions(const qxArray* a) { return a ? a->dims.data() : nullptr; }
qxSize qxGetM(const qxArray* a) { return a ? a->dims[0] : 0; }

qxSize qxGetN(const qxArray* a) {
  if (a == nullptr) return 0;
  qxSize n = 1;
  for (std::size_t k = 1; k < a->dims.size(); ++k) n *= a->dims[k];
  return n;
}

void* qxGetData(const qxArray* a) {
  if (a == nullptr || a->real.empty()) return nullptr;
  return const_cast<std::byte*>(a->real.data());
}

void* qxGetImagData(const qxArray* a) {
  if (a == nullptr || a->imag.empty()) return nullptr;
  return const_cast<std::byte*>(a->imag.data());
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

int qxGetNumberOfFields(const qxArray* a) { return hasFields(a) ? static_cast<int>(a->fields.size()) : 0; }

const char* qxGetFieldNameByNumber(const qxArray* a, int n) {
  if (!hasFields(a) || n < 0 || static_cast<std::size_t>(n) >= a->fields.size()) return nullptr;
  return a->fields[n].name.c_str();
}

int qxGetFieldNumber(const qxArray* a, const char* name) {
  if (!hasFields(a) || name == nullptr) return -1;
  for (std::size_t k = 0; k < a->fields.size(); ++k) {
    if (a->fields[k].name == name) return static_cast<int>(k);
  }
  return -1;
}

qxArray* qxGetFieldByNumber(const qxArray* a, qxIndex i, int n) {
  if (!hasFields(a) || n < 0 || static_cast<std::size_t>(n) >= a->fields.size()) return nullptr;
  const Field& f = a->fields[n];
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
    f.values.resize(qxGetNumberOfElements(a));
    a->fields.push_back(std::move(f));
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return static_cast<int>(a->fields.size() - 1);
}

}  // extern "C"
