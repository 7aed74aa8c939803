#pragma once
// Raising errors in Octave. An Octave error is a C++ exception of Octave's own
// (octave::execution_exception): it unwinds through the add-on library, running its destructors, up to
// the interpreter, which shows the message and hands catch blocks a value with the identifier and the
// message. Nothing between may swallow it.
#include <string>

namespace zvhost::octave {

// Identifiers of the binding's own errors; the same names as the reference host's, so that a caller
// sees one set of identifiers whichever host runs the library.
namespace errors {
inline constexpr const char* tooManyOutputs = "zvhost:tooManyOutputs";
inline constexpr const char* tooManyInputs = "zvhost:tooManyInputs";
inline constexpr const char* notEnoughInputs = "zvhost:notEnoughInputs";
inline constexpr const char* notString = "zvhost:notString";
inline constexpr const char* invalidText = "zvhost:invalidText";
inline constexpr const char* invalidClass = "zvhost:invalidClass";
inline constexpr const char* invalidFieldName = "zvhost:invalidFieldName";
inline constexpr const char* noSuchField = "zvhost:noSuchField";
inline constexpr const char* notContainer = "zvhost:notContainer";
inline constexpr const char* badSubscript = "zvhost:badSubscript";
inline constexpr const char* indexOutOfBounds = "zvhost:indexOutOfBounds";
inline constexpr const char* outOfMemory = "zvhost:outOfMemory";
inline constexpr const char* unexpectedException = "zvhost:unexpectedException";
inline constexpr const char* notAvailable = "zvhost:notAvailable";
}  // namespace errors

// Raises an Octave error with this identifier and exactly this message (UTF-8). Unlike the C interface
// of extensions, nothing is put before the message.
[[noreturn]] void raise(const char* identifier, const std::string& message);

}  // namespace zvhost::octave
