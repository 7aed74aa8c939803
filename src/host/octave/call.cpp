// Raising errors in Octave, and calling the add-on library from an extension entry.
//
// An Octave error is a C++ exception of Octave's own (octave::execution_exception): it unwinds through
// the add-on library, running its destructors, up to the interpreter, which shows the message and
// hands catch blocks a value with the identifier and the message. Nothing between may swallow it.
#include "host/octave/call.h"

#include <exception>
#include <new>
#include <string>

#include "host/common/host_common.h"
#include "host/octave/objects.h"
#include "host/octave/octave_api.h"

namespace zvhost {

// Exactly this message (UTF-8): unlike the C interface of extensions, nothing is put before it, and
// it goes through "%s" because a catalogue text or a path may hold a percent sign. Octave's errors
// carry no arguments.
void raise(const char* identifier, std::string message, std::vector<foundation::core::msg::MessageArgument>) {
  error_with_id(identifier, "%s", message.c_str());
}

}  // namespace zvhost

namespace zvhost::octave {

void callGateway(qxFunction f, const char* name, int outputCount, mxArray** outputs, int inputCount,
                 const mxArray** inputs) {
  const std::string entry = name ? name : "?";
  if (f == nullptr) raise(errors::notAvailable, entry + " is not available in this build of the add-on library.");
  try {
    CallScope scope;
    f(outputCount, reinterpret_cast<qxArray**>(outputs), inputCount, reinterpret_cast<const qxArray**>(inputs));
  } catch (const ::octave::execution_exception&) {
    throw;
  } catch (const ::octave::interrupt_exception&) {
    throw;
  } catch (const std::bad_alloc&) {
    raise(errors::outOfMemory, entry + ": out of memory.");
  } catch (const std::exception& e) {
    raise(errors::unexpectedException, entry + ": unexpected exception: " + e.what());
  } catch (...) {
    raise(errors::unexpectedException, entry + ": unexpected exception of unknown type.");
  }
}

}  // namespace zvhost::octave
