#pragma once
// Calling a function of the host contract from an Octave extension entry (mexFunction).
#include "host/qx.h"

class mxArray;  // Octave's array class

namespace zvhost::octave {

// Calls f with Octave's arguments; name is the entry's name, used in messages. f null means the
// function is missing from the add-on library this binding was loaded with: an Octave error
// "zvhost:notAvailable".
//
// No C++ exception leaves this function except Octave's own: an Octave error or interrupt raised
// inside f unwinds untouched; std::bad_alloc becomes the error "zvhost:outOfMemory" and any other
// exception "zvhost:unexpectedException" with its what() text. Object views made during the call are
// released before it returns (see CallScope). Arrays stored in outputs belong to Octave.
[[gnu::visibility("default")]] void callGateway(qxFunction f, const char* name, int outputCount, mxArray** outputs,
                                                int inputCount, const mxArray** inputs);

}  // namespace zvhost::octave
