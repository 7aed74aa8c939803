// The reference host's release information.
#include "host/reference/release.h"

#include <cstdlib>
#include <mutex>
#include <optional>

namespace zvhost::reference {

namespace {

struct Override {
  std::mutex mutex;
  std::optional<foundation::release_info::ReleaseInfo> info;
};

Override& releaseOverride() {
  static Override o;
  return o;
}

}  // namespace

foundation::release_info::ReleaseInfo defaultReleaseInfo() {
  foundation::release_info::ReleaseInfo info{"R2026b", "26.2.0.1"};
  if (const char* r = std::getenv("ZVADDON_HOST_RELEASE"); r != nullptr && *r != '\0') info.release = r;
  if (const char* v = std::getenv("ZVADDON_HOST_VERSION"); v != nullptr && *v != '\0') info.version = v;
  return info;
}

void setReleaseInfo(foundation::release_info::ReleaseInfo info) {
  Override& o = releaseOverride();
  std::lock_guard lock(o.mutex);
  o.info = std::move(info);
}

void resetReleaseInfo() {
  Override& o = releaseOverride();
  std::lock_guard lock(o.mutex);
  o.info.reset();
}

}  // namespace zvhost::reference

namespace foundation::release_info {

ReleaseInfo getCurrentReleaseInfo() noexcept {
  auto& o = zvhost::reference::releaseOverride();
  {
    std::lock_guard lock(o.mutex);
    if (o.info) return *o.info;
  }
  return zvhost::reference::defaultReleaseInfo();
}

}  // namespace foundation::release_info
