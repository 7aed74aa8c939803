#pragma once
// The running host's release. The host supplies it: foundation only declares the query, and whoever
// loads the library (the reference host, the Octave binding) defines getCurrentReleaseInfo().
#include <string>

namespace foundation::release_info {

struct ReleaseInfo {
  std::string release;  // e.g. "R2026b": what packages record as the host release
  std::string version;  // e.g. "26.2.0.1"
  bool operator==(const ReleaseInfo&) const = default;
};

// Defined by the host runtime. Never throws.
[[gnu::visibility("default")]] ReleaseInfo getCurrentReleaseInfo() noexcept;

}  // namespace foundation::release_info
