#include "host/octave/objects.h"

namespace zvhost::octave {

namespace {

thread_local CallScope* currentScope = nullptr;

// Reading a classdef object's properties as a structure makes Octave warn that access restrictions are
// bypassed; the binding reads them for the caller's own value, so the warning is off for that read.
octave_map fieldsOf(const octave_value& value) {
  if (!value.is_classdef_object()) return value.map_value();
  struct Restore {
    octave_value_list previous;
    ~Restore() {
      try {
        ::octave::set_warning_state(previous);
      } catch (...) {
      }
    }
  } restore{::octave::set_warning_state("Octave:classdef-to-struct", "off")};
  return value.map_value();
}

}  // namespace

mxArray* fromValue(const octave_value& v) {
  if (v.isobject()) return new mxArray(false, v);
  const mxArray holder(false, v);
  return mxDuplicateArray(&holder);
}

bool isObject(const mxArray* a) {
  // Only values of unknown class can be objects; the others are answered without building a value.
  if (a == nullptr || mxGetClassID(a) != mxUNKNOWN_CLASS) return false;
  return mxArray::as_octave_value(a).isobject();
}

CallScope::CallScope() : outer_(currentScope) { currentScope = this; }

CallScope::~CallScope() { currentScope = outer_; }

const mxArray* objectView(const mxArray* object) {
  if (currentScope == nullptr || !isObject(object)) return nullptr;
  octave_value value = mxArray::as_octave_value(object);
  for (const CallScope::View& view : currentScope->views_) {
    if (view.object == object && view.value.is_copy_of(value)) return view.fields.get();
  }
  // Owned by the scope, not by Octave's list of the call's arrays: Octave's C interface has no call that
  // makes an array from a value.
  std::unique_ptr<mxArray> fields(new mxArray(false, octave_value(fieldsOf(value))));
  currentScope->views_.push_back({object, std::move(value), std::move(fields)});
  return currentScope->views_.back().fields.get();
}

}  // namespace zvhost::octave
