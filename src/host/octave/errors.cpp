// Host errors in Octave: the binding's own, the argument-count errors, and message-key errors.
#include <string>

#include "host/matrix.h"
#include "host/octave/host_error.h"
#include "host/octave/octave_api.h"
#include "host/reference/messages.h"

namespace zvhost::octave {

void raise(const char* identifier, const std::string& message) {
  // The message goes through "%s": a catalogue text or a path may hold a percent sign.
  error_with_id(identifier, "%s", message.c_str());
}

}  // namespace zvhost::octave

namespace matrix::detail {

using zvhost::octave::raise;
namespace errors = zvhost::octave::errors;

void error_maxlhs() { raise(errors::tooManyOutputs, "Too many output arguments."); }
void error_maxrhs() { raise(errors::tooManyInputs, "Too many input arguments."); }
void error_minrhs() { raise(errors::notEnoughInputs, "Not enough input arguments."); }

void do_legacy_qx_error(const foundation::core::except::IUserException& e) {
  const auto& message = e.GetBaseMsgIDObj();
  std::string identifier = e.GetID();
  if (identifier.empty()) identifier = message.catalog() + ":" + message.key();
  raise(identifier.c_str(),
        zvhost::reference::formatMessage(message.catalog(), message.key(), message.arguments()));
}

}  // namespace matrix::detail
