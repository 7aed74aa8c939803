#pragma once
// Helpers shared by the sources of the binding's array functions.
#include <vector>

#include "host/common/host_common.h"
#include "host/octave/octave_api.h"

namespace zvhost::octave::detail {

// The contract's dimensions as Octave takes them: padded to two with 1, trailing 1s beyond the second
// dropped. Raises the binding's out-of-memory error when a dimension or the element count is beyond what
// Octave can index.
[[nodiscard]] std::vector<mwSize> octaveDims(qxSize ndim, const qxSize* dims);

// Structure storage of a (whose fields are read): a itself for a structure, its view for an object,
// null for anything else.
[[nodiscard]] const mxArray* fieldStore(const qxArray* a);

}  // namespace zvhost::octave::detail
