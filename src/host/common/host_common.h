#pragma once
// What every host implementation of the contract shares, so that a caller sees one set of error
// identifiers, class names and rules whichever host runs the library. The inline part serves any
// code over the contract; host_common.cpp, compiled into each host, defines the contract functions
// that read the same over any host's primitives, and asks the host for the three below.
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/message.h"
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

// The host language's names of the built-in classes, in qxClassID order up to function handles.
inline constexpr const char* kClassNames[] = {"unknown", "cell",  "struct", "logical", "char",  "void",
                                              "double",  "single", "int8",  "uint8",   "int16", "uint16",
                                              "int32",   "uint32", "int64", "uint64",  "function_handle"};

// "double", "cell", ...; "unknown" for objects and anything else.
[[nodiscard]] inline const char* builtinClassName(qxClassID id) noexcept {
  return static_cast<std::size_t>(id) < std::size(kClassNames) ? kClassNames[id] : "unknown";
}

[[nodiscard]] inline bool isNumericClass(qxClassID id) noexcept { return id >= qxDOUBLE_CLASS && id <= qxUINT64_CLASS; }

// A 1xN array.
[[nodiscard]] inline bool isRow(const qxArray* a) { return qxGetNumberOfDimensions(a) == 2 && qxGetM(a) == 1; }

// Null, or the 0x0 real double: the host's language cannot tell an unset value from it.
[[nodiscard]] inline bool isUnsetLike(const qxArray* a) {
  return a == nullptr || (qxGetClassID(a) == qxDOUBLE_CLASS && !qxIsComplex(a) && qxGetNumberOfDimensions(a) == 2 &&
                          qxGetM(a) == 0 && qxGetN(a) == 0);
}

// A field or class name: a letter, then letters, digits and underscores.
[[nodiscard]] inline bool isIdentifier(std::string_view name) noexcept {
  auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  if (name.empty() || !letter(name.front())) return false;
  for (char c : name) {
    if (!letter(c) && !(c >= '0' && c <= '9') && c != '_') return false;
  }
  return true;
}

// Calls f(T{}) with the C type of the elements of a numeric or logical class; qxChar for every other
// class, so callers pass only classes that hold data.
template <class F>
decltype(auto) withElementType(qxClassID id, F&& f) {
  switch (id) {
    case qxDOUBLE_CLASS: return f(double{});
    case qxSINGLE_CLASS: return f(float{});
    case qxINT8_CLASS: return f(std::int8_t{});
    case qxUINT8_CLASS: return f(std::uint8_t{});
    case qxINT16_CLASS: return f(std::int16_t{});
    case qxUINT16_CLASS: return f(std::uint16_t{});
    case qxINT32_CLASS: return f(std::int32_t{});
    case qxUINT32_CLASS: return f(std::uint32_t{});
    case qxINT64_CLASS: return f(std::int64_t{});
    case qxUINT64_CLASS: return f(std::uint64_t{});
    case qxLOGICAL_CLASS: return f(qxLogical{});
    default: return f(qxChar{});
  }
}

// Bytes per element of a data-holding class as the contract stores it (char as qxChar); 0 for
// containers and unknown classes.
[[nodiscard]] inline std::size_t elementSize(qxClassID id) {
  if (id != qxCHAR_CLASS && id != qxLOGICAL_CLASS && !isNumericClass(id)) return 0;
  return withElementType(id, []<class T>(T) { return sizeof(T); });
}

// Element k of a data buffer of T, read without assuming its alignment.
template <class T>
[[nodiscard]] T elementAt(const void* data, std::size_t k) {
  T v;
  std::memcpy(&v, static_cast<const char*>(data) + k * sizeof(T), sizeof(T));
  return v;
}

// ---- provided by each host -----------------------------------------------------------------------
// Raises the host error; arguments are the message's, for hosts that keep them.
[[noreturn]] void raise(const char* identifier, std::string message,
                        std::vector<foundation::core::msg::MessageArgument> arguments = {});
// A new 1x1 array of a's class holding element `index` (0-based, in range) of a.
[[nodiscard]] qxArray* copyElement(const qxArray* a, qxSize index);
// The UTF-16 text of a character array.
[[nodiscard]] ustring textOf(const qxArray* a);

// Raises for a store that was given `value`: frees it first, so that no failure leaks it.
[[noreturn]] inline void refuse(qxArray* value, const char* identifier, std::string message) {
  qxDestroyArray(value);
  raise(identifier, std::move(message));
}

// Raises the invalid-field-name error unless names holds nfields distinct identifiers.
void checkFieldNames(int nfields, const char** names);

}  // namespace zvhost
