#pragma once
// The reference host's release, as reported through foundation::release_info::getCurrentReleaseInfo().
// By default its own release; the environment variables ZVADDON_HOST_RELEASE and ZVADDON_HOST_VERSION
// replace either part, and setReleaseInfo replaces both until resetReleaseInfo.
#include "foundation/release_info.h"
#include "host/qx.h"

namespace zvhost::reference {

QX_API foundation::release_info::ReleaseInfo defaultReleaseInfo();
QX_API void setReleaseInfo(foundation::release_info::ReleaseInfo info);
QX_API void resetReleaseInfo();

}  // namespace zvhost::reference
