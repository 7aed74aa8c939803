#pragma once
// The reference host's error: what a host error raised during an extension call becomes, caught by
// whoever made the call (the command-line tool, tests).
#include <exception>
#include <string>
#include <vector>

#include "foundation/message.h"
#include "host/common/host_common.h"

namespace zvhost::reference {

class QX_API HostError : public std::exception {
 public:
  // identifier: "catalogue:key" for message-key errors, "zvhost:<name>" for the host's own.
  HostError(std::string identifier, std::string message, std::vector<foundation::core::msg::MessageArgument> arguments = {})
      : identifier_(std::move(identifier)), message_(std::move(message)), arguments_(std::move(arguments)) {}

  [[nodiscard]] const std::string& identifier() const noexcept { return identifier_; }
  // The identifier's last component: the message key, or the host error's own name.
  [[nodiscard]] std::string key() const { return identifier_.substr(identifier_.rfind(':') + 1); }
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

}  // namespace zvhost::reference
