#pragma once
// The system's clock. With SOURCE_DATE_EPOCH set to whole seconds since 1970, every time the system
// writes (core properties, ZIP entry times of generated parts, signing time) reads that instant, so
// that building the same input twice gives the same bytes.
#include <ctime>
#include <optional>

namespace foundation::clock {

// SOURCE_DATE_EPOCH when set and valid, else the current calendar time.
[[nodiscard]] std::time_t now() noexcept;
// SOURCE_DATE_EPOCH when set and valid (a decimal integer), else nothing.
[[nodiscard]] std::optional<std::time_t> sourceDateEpoch() noexcept;

}  // namespace foundation::clock
