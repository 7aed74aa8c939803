#pragma once
// Objects in Octave: old-style (@class folder) and classdef objects. Octave's extension interface
// reports both with an unknown class id and cannot give their fields (it fails converting them). The
// binding therefore recognises them through the value itself, and reads their fields through a
// structure view: a plain structure holding the object's fields (for classdef objects, all its
// properties) made once per object and call.
#include <memory>
#include <vector>

#include "host/octave/octave_api.h"

namespace zvhost::octave {

// True for old-style and classdef objects (what Octave's isobject says); false for null.
[[nodiscard]] bool isObject(const mxArray* a);

// The lifetime of object views: one scope per extension call, opened by the call's entry (nested
// calls open their own). A view lives until the scope that made it closes, so that a field read from
// an object stays valid for the rest of the call, as borrowed values must. Not copyable.
class CallScope {
 public:
  CallScope();
  ~CallScope();
  CallScope(const CallScope&) = delete;
  CallScope& operator=(const CallScope&) = delete;

 private:
  friend const mxArray* objectView(const mxArray* object);
  struct View {
    const mxArray* object;
    // Holds the object's value, so that another array made later at the same address can never be
    // taken for it.
    octave_value value;
    std::unique_ptr<mxArray> fields;
  };
  std::vector<View> views_;
  CallScope* outer_;
};

// A new array holding v, owned by the caller. Octave cannot duplicate old-style objects through its C
// interface, so objects are wrapped as they are (Octave's values are copied on write); other values go
// through Octave's list of the call's arrays like every array the binding makes.
[[nodiscard]] mxArray* fromValue(const octave_value& v);

// The structure view of an object, made on first use in the current scope; null when a is not an
// object or no scope is open. Errors raised by Octave while the view is made (a property getter that
// fails) propagate as Octave errors.
[[nodiscard]] const mxArray* objectView(const mxArray* object);

}  // namespace zvhost::octave
