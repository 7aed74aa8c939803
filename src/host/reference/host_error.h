#pragma once
// The reference host's error: what a host error raised during an extension call becomes, caught by
// whoever made the call (the command-line tool, tests).
#include <exception>
#include <string>
#include <vector>

#include "foundation/message.h"
#include "host/qx.h"

namespace zvhost::reference {

class QX_API HostError : public std::exception {
 public:
  // identifier: "catalogue:key" for message-key errors, "zvhost:<name>" for the host's own.
  HostError(std::string identifier, std::string message,
            std::vector<foundation::core::msg::MessageArgument> arguments = {});

  [[nodiscard]] const std::string& identifier() const noexcept { return identifier_; }
  // The identifier's last component: the message key, or the host error's own name.
  [[nodiscard]] std::string key() const;
  [[nodiscard]] const std::vector<foundation::core::msg::MessageArgument>& arguments() const noexcept {
    return arguments_;
  }
  // The catalogue text with the arguments filled in.
  [[nodiscard]] const std::string& message() const noexcept { return message_; }
  [[nodiscard]] const char* what() const noexcept override { return message_.c_str(); }

 private:
  std::string identifier_;
  std::string message_;
  std::vector<foundation::core::msg::MessageArgument> arguments_;
};

// Identifiers of the host's own errors.
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
}  // namespace errors

// Raises one of the host's own errors. message is the complete text.
[[noreturn]] QX_API void raise(const char* identifier, std::string message,
                               std::vector<foundation::core::msg::MessageArgument> arguments = {});

}  // namespace zvhost::reference
