// Storing into cells and fields: where ownership passes from the caller to a container.
#include <string>

#include "host/reference/array.h"
#include "host/reference/host_error.h"

using namespace zvhost;
using namespace zvhost::reference::detail;

namespace {

// A value that belongs to another container, or that would make the container hold itself, is
// refused without being freed: it is not the caller's to give away.
void checkStorable(const qxArray* container, const qxArray* value) {
  if (value == nullptr) return;
  if (value->parent != nullptr) {
    raise(errors::alreadyHeld, "The value is already held by another container.");
  }
  for (const qxArray* p = container; p != nullptr; p = p->parent) {
    if (p == value) raise(errors::alreadyHeld, "A container cannot hold itself.");
  }
}

void store(ArrayPtr& slot, qxArray* container, qxArray* value) {
  if (value != nullptr) value->parent = container;
  slot.reset(value);
}

void setField(qxArray* a, qxIndex i, int n, const char* name, qxArray* value) {
  checkStorable(a, value);
  if (a == nullptr || (a->classID != qxSTRUCT_CLASS && a->classID != qxOBJECT_CLASS)) {
    refuse(value, errors::notContainer, "Fields can only be set on a structure or object.");
  }
  if (n < 0 || static_cast<std::size_t>(n) >= a->record->fields.size()) {
    refuse(value, errors::noSuchField,
           std::string("Reference to non-existent field \"") + (name ? name : std::to_string(n)) + "\".");
  }
  Field& f = a->record->fields[n];
  if (i >= f.values.size()) refuse(value, errors::indexOutOfBounds, "Structure index exceeds the array's size.");
  store(f.values[i], a, value);
}

}  // namespace

extern "C" {

qxArray* qxGetCell(const qxArray* a, qxIndex i) {
  if (a == nullptr || a->classID != qxCELL_CLASS || i >= a->count) return nullptr;
  return a->slots()[i];
}

void qxSetCell(qxArray* a, qxIndex i, qxArray* value) {
  checkStorable(a, value);
  if (a == nullptr || a->classID != qxCELL_CLASS) {
    refuse(value, errors::notContainer, "Cells can only be set on a cell array.");
  }
  if (i >= a->count) refuse(value, errors::indexOutOfBounds, "Cell index exceeds the array's size.");
  qxArray*& slot = a->slots()[i];
  if (value != nullptr) value->parent = a;
  destroy(slot);
  slot = value;
}

void qxSetField(qxArray* a, qxIndex i, const char* name, qxArray* value) {
  setField(a, i, qxGetFieldNumber(a, name), name ? name : "", value);
}

void qxSetFieldByNumber(qxArray* a, qxIndex i, int n, qxArray* value) {
  setField(a, i, n, nullptr, value);
}

}  // extern "C"
