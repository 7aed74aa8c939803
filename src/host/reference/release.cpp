// The reference host's release, as packages record it: its own, or the environment variables
// ZVADDON_HOST_RELEASE and ZVADDON_HOST_VERSION in place of either part.
#include <cstdlib>

#include "foundation/release_info.h"

namespace foundation::release_info {

ReleaseInfo getCurrentReleaseInfo() noexcept {
  ReleaseInfo info{"R2026b", "26.2.0.1"};
  if (const char* r = std::getenv("ZVADDON_HOST_RELEASE"); r != nullptr && *r != '\0') info.release = r;
  if (const char* v = std::getenv("ZVADDON_HOST_VERSION"); v != nullptr && *v != '\0') info.version = v;
  return info;
}

}  // namespace foundation::release_info
