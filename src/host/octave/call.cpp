#include "host/octave/call.h"

#include <exception>
#include <new>
#include <string>

#include "host/octave/host_error.h"
#include "host/octave/objects.h"
#include "host/octave/octave_api.h"

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
