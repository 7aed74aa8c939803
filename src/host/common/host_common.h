#pragma once
// What every host implementation of the contract shares, so that a caller sees one set of error
// identifiers and class names whichever host runs the library.
#include "host/qx.h"

namespace zvhost {

// Identifiers of a host's own errors (message-key errors use "catalogue:key" instead).
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
inline constexpr const char* alreadyHeld = "zvhost:alreadyHeld";
inline constexpr const char* badSubscript = "zvhost:badSubscript";
inline constexpr const char* indexOutOfBounds = "zvhost:indexOutOfBounds";
inline constexpr const char* outOfMemory = "zvhost:outOfMemory";
inline constexpr const char* outputNotAssigned = "zvhost:outputNotAssigned";
inline constexpr const char* unexpectedException = "zvhost:unexpectedException";
inline constexpr const char* notAvailable = "zvhost:notAvailable";
}  // namespace errors

// The host language's name of a built-in class ("double", "cell", ...); "unknown" for others.
[[nodiscard]] const char* builtinClassName(qxClassID classID) noexcept;

}  // namespace zvhost
