#pragma once
// Octave's extension interface as the binding sees it: mxArray as Octave's own C++ class (so that an
// array can be looked at as an octave_value when the C interface says too little), then the C
// prototypes over it. Octave's C header for extensions declares mxArray as void and cannot be mixed
// with its C++ headers, so every source of the binding includes this instead.
//
// A qxArray of the contract is an mxArray of Octave: the two pointer types convert one to one.
#include <octave/error.h>
#include <octave/ov.h>
#include <octave/ovl.h>
#include <octave/quit.h>

#include <octave/mxarray.h>
// mxarray.h must come first: it makes mxArray a class before the prototypes use it.
#include <octave/mexproto.h>

#include "host/qx.h"

namespace zvhost::octave {

inline mxArray* mx(qxArray* a) { return reinterpret_cast<mxArray*>(a); }
inline const mxArray* mx(const qxArray* a) { return reinterpret_cast<const mxArray*>(a); }
inline qxArray* qx(mxArray* a) { return reinterpret_cast<qxArray*>(a); }

}  // namespace zvhost::octave
