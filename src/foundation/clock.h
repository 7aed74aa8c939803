#pragma once
// The system's clock. With SOURCE_DATE_EPOCH set to whole seconds since 1970, every time the system
// writes (core properties, ZIP entry times of generated parts, signing time) reads that instant, so
// that building the same input twice gives the same bytes.
//
// A value that is set but unusable (no decimal integer, or outside 0 .. 253402300799, the last
// second a four-digit year can write) throws Error with a message naming the variable: silently
// building with another time would not be reproducible. Every writer reads it, so every writing
// call fails alike, before it writes anything.
#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>

namespace foundation::clock {

namespace detail {
struct Epoch {
  std::optional<std::time_t> seconds;
  std::string problem;  // why the value set cannot be used; empty when it can or none is set
};
[[nodiscard]] Epoch readSourceDateEpoch();
}  // namespace detail

// SOURCE_DATE_EPOCH when set, else nothing.
template <class Error = std::invalid_argument>
[[nodiscard]] std::optional<std::time_t> sourceDateEpoch() {
  detail::Epoch epoch = detail::readSourceDateEpoch();
  if (!epoch.problem.empty()) throw Error(std::move(epoch.problem));
  return epoch.seconds;
}

// SOURCE_DATE_EPOCH when set, else the current calendar time.
template <class Error = std::invalid_argument>
[[nodiscard]] std::time_t now() {
  return sourceDateEpoch<Error>().value_or(std::time(nullptr));
}

}  // namespace foundation::clock
