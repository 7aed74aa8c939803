#pragma once
// Helpers shared by the sources of the binding's array functions.
#include "host/common/host_common.h"
#include "host/octave/octave_api.h"

namespace zvhost::octave::detail {

// Structure storage of a (whose fields are read): a itself for a structure, its view for an object,
// null for anything else.
[[nodiscard]] const mxArray* fieldStore(const qxArray* a);

}  // namespace zvhost::octave::detail
