#include "foundation/except.h"

namespace foundation::core::except {

IException::~IException() = default;

std::string IMsgIDException::get_error_id(const msg::BuiltinMessage& message) {
  return message.catalog() + ":" + message.key();
}

}  // namespace foundation::core::except
