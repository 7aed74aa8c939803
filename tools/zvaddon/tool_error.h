#pragma once
// Exit statuses of the tool and the error that carries one. Host errors raised by a gateway function
// travel as zvhost::reference::HostError instead and end the command with ExitStatus::hostError.
#include <stdexcept>
#include <string>

namespace zvaddon::tool {

enum class ExitStatus : int {
  ok = 0,
  hostError = 1,     // a gateway function raised an error, or a file could not be read or written
  usage = 2,         // the command line is wrong
  unsigned_ = 3,     // verify: the package carries no signature
  invalid = 4,       // verify: a signature over the requirements does not check out
  badInput = 5,      // the manifest or a record's JSON is malformed (unknown key, wrong type)
};

// What a command could not do, as one line for people, with the status the tool exits with.
class ToolError : public std::runtime_error {
 public:
  ToolError(ExitStatus status, const std::string& message) : std::runtime_error(message), status_(status) {}
  [[nodiscard]] ExitStatus status() const noexcept { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace zvaddon::tool
