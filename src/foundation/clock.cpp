#include "foundation/clock.h"

#include <cerrno>
#include <cstdlib>

namespace foundation::clock {

std::optional<std::time_t> sourceDateEpoch() noexcept {
  const char* text = std::getenv("SOURCE_DATE_EPOCH");
  if (text == nullptr || *text == '\0') return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(text, &end, 10);
  if (errno != 0 || *end != '\0') return std::nullopt;
  return static_cast<std::time_t>(value);
}

std::time_t now() noexcept {
  if (auto epoch = sourceDateEpoch()) return *epoch;
  return std::time(nullptr);
}

}  // namespace foundation::clock
