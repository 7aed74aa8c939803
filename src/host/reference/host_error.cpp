#include "host/reference/host_error.h"

#include <utility>

namespace zvhost::reference {

HostError::HostError(std::string identifier, std::string message,
                     std::vector<foundation::core::msg::MessageArgument> arguments)
    : identifier_(std::move(identifier)), message_(std::move(message)), arguments_(std::move(arguments)) {}

std::string HostError::key() const {
  const auto colon = identifier_.rfind(':');
  return colon == std::string::npos ? identifier_ : identifier_.substr(colon + 1);
}

void raise(const char* identifier, std::string message,
           std::vector<foundation::core::msg::MessageArgument> arguments) {
  throw HostError(identifier, std::move(message), std::move(arguments));
}

}  // namespace zvhost::reference
