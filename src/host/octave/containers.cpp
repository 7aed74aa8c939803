// Cells and fields: where ownership passes from the caller to a container.
//
// Octave's own accessors do not check what they are given: a field read past the last element or on a
// value that is no structure can bring Octave down, and storing into a slot does not free the value it
// replaces. Every check the contract promises is made here before Octave is asked.
#include <string>

#include "host/common/host_common.h"
#include "host/octave/objects.h"

using namespace zvhost;
using namespace zvhost::octave;

namespace {

// Where the fields of a are read: a itself for a structure, its view for an object, null otherwise.
const mxArray* fieldStore(const qxArray* a) {
  if (a == nullptr) return nullptr;
  if (mxIsStruct(mx(a))) return mx(a);
  return objectView(mx(a));
}

int fieldCount(const mxArray* store) { return store ? mxGetNumberOfFields(store) : 0; }

void setField(qxArray* a, qxIndex i, int n, const std::string& name, qxArray* value) {
  // Objects are refused too: their fields are read through a copy, which a store would not reach.
  if (!qxIsStruct(a)) refuse(value, errors::notContainer, "Fields can only be set on a structure.");
  if (n < 0 || n >= mxGetNumberOfFields(mx(a))) {
    refuse(value, errors::noSuchField, "Reference to non-existent field \"" + name + "\".");
  }
  if (i >= qxGetNumberOfElements(a)) refuse(value, errors::indexOutOfBounds, "Structure index exceeds the array's size.");
  mxArray* old = mxGetFieldByNumber(mx(a), static_cast<mwIndex>(i), n);
  mxSetFieldByNumber(mx(a), static_cast<mwIndex>(i), n, mx(value));
  if (old != nullptr && old != mx(value)) mxDestroyArray(old);
}

}  // namespace

extern "C" {

qxArray* qxGetCell(const qxArray* a, qxIndex i) {
  if (!qxIsCell(a) || i >= qxGetNumberOfElements(a)) return nullptr;
  return qx(mxGetCell(mx(a), static_cast<mwIndex>(i)));
}

void qxSetCell(qxArray* a, qxIndex i, qxArray* value) {
  if (!qxIsCell(a)) refuse(value, errors::notContainer, "Cells can only be set on a cell array.");
  if (i >= qxGetNumberOfElements(a)) refuse(value, errors::indexOutOfBounds, "Cell index exceeds the array's size.");
  mxArray* old = mxGetCell(mx(a), static_cast<mwIndex>(i));
  mxSetCell(mx(a), static_cast<mwIndex>(i), mx(value));
  if (old != nullptr && old != mx(value)) mxDestroyArray(old);
}

int qxGetNumberOfFields(const qxArray* a) { return fieldCount(fieldStore(a)); }

const char* qxGetFieldNameByNumber(const qxArray* a, int n) {
  const mxArray* store = fieldStore(a);
  if (n < 0 || n >= fieldCount(store)) return nullptr;
  return mxGetFieldNameByNumber(store, n);
}

int qxGetFieldNumber(const qxArray* a, const char* name) {
  const mxArray* store = fieldStore(a);
  if (store == nullptr || name == nullptr) return -1;
  return mxGetFieldNumber(store, name);
}

qxArray* qxGetFieldByNumber(const qxArray* a, qxIndex i, int n) {
  const mxArray* store = fieldStore(a);
  if (n < 0 || n >= fieldCount(store) || i >= mxGetNumberOfElements(store)) return nullptr;
  return qx(mxGetFieldByNumber(store, static_cast<mwIndex>(i), n));
}

void qxSetField(qxArray* a, qxIndex i, const char* name, qxArray* value) {
  setField(a, i, qxIsStruct(a) && name ? mxGetFieldNumber(mx(a), name) : -1, name ? name : "", value);
}

void qxSetFieldByNumber(qxArray* a, qxIndex i, int n, qxArray* value) { setField(a, i, n, std::to_string(n), value); }

}  // extern "C"
