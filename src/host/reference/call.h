#pragma once
// Calling an extension function as the host does, from C++.
#include <vector>

#include "host/matrix.h"
#include "host/qx.h"

namespace zvhost::reference {

using OwnedArrays = std::vector<matrix::unique_qxarray_ptr>;

// Calls f with nargout requested outputs and the given inputs (borrowed; f must not change them).
// Returns the nargout outputs, owned. Every failure arrives as a HostError: a host error raised inside
// f, an output slot below nargout left unset ("zvhost:outputNotAssigned"), or any other exception
// escaping f ("zvhost:unexpectedException", with its what() text). Outputs already stored when f fails
// are freed. Throws std::invalid_argument for a negative nargout.
[[nodiscard]] QX_API OwnedArrays call(qxFunction f, int nargout, const std::vector<const qxArray*>& inputs);

}  // namespace zvhost::reference
