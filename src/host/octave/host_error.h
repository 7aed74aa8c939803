#pragma once
// Raising errors in Octave. An Octave error is a C++ exception of Octave's own
// (octave::execution_exception): it unwinds through the add-on library, running its destructors, up to
// the interpreter, which shows the message and hands catch blocks a value with the identifier and the
// message. Nothing between may swallow it.
#include <string>

#include "host/common/host_common.h"

namespace zvhost::octave {

namespace errors = zvhost::errors;

// Raises an Octave error with this identifier and exactly this message (UTF-8). Unlike the C interface
// of extensions, nothing is put before the message.
[[noreturn]] void raise(const char* identifier, const std::string& message);

}  // namespace zvhost::octave
