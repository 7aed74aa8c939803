// The host release that packages made in Octave record: "Octave " and the version of the Octave the
// binding was built for (extension files are built for one version of Octave), e.g. "Octave 7.3.0".
#include <octave/version.h>

#include "foundation/release_info.h"

namespace foundation::release_info {

ReleaseInfo getCurrentReleaseInfo() noexcept { return {"Octave " OCTAVE_VERSION, OCTAVE_VERSION}; }

}  // namespace foundation::release_info
