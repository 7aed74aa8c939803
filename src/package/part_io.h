#pragma once
#include "foundation/ustring.h"
#include "opc/model/part.h"

namespace addon::packaging {

// Streams the file at `path` into `part`, replacing its content. Throws opc::Exception when the file
// cannot be read.
void copyFileIntoPart(opc::model::Part& part, const ustring& path);

}  // namespace addon::packaging
