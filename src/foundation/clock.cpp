#include "foundation/clock.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace foundation::clock::detail {

Epoch readSourceDateEpoch() {
  const char* set = std::getenv("SOURCE_DATE_EPOCH");
  if (set == nullptr || *set == '\0') return {};
  constexpr long long kLast = 253402300799;  // 9999-12-31T23:59:59Z
  const std::string_view text(set);
  long long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 0 || value > kLast) {
    return {std::nullopt, "SOURCE_DATE_EPOCH is '" + std::string(text) + "', not whole seconds from 0 to " +
                              std::to_string(kLast) + " (1970 to 9999)"};
  }
  return {static_cast<std::time_t>(value), {}};
}

}  // namespace foundation::clock::detail
