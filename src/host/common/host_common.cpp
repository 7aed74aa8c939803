#include "host/common/host_common.h"

namespace zvhost {

const char* builtinClassName(qxClassID classID) noexcept {
  switch (classID) {
    case qxCELL_CLASS: return "cell";
    case qxSTRUCT_CLASS: return "struct";
    case qxLOGICAL_CLASS: return "logical";
    case qxCHAR_CLASS: return "char";
    case qxVOID_CLASS: return "void";
    case qxDOUBLE_CLASS: return "double";
    case qxSINGLE_CLASS: return "single";
    case qxINT8_CLASS: return "int8";
    case qxUINT8_CLASS: return "uint8";
    case qxINT16_CLASS: return "int16";
    case qxUINT16_CLASS: return "uint16";
    case qxINT32_CLASS: return "int32";
    case qxUINT32_CLASS: return "uint32";
    case qxINT64_CLASS: return "int64";
    case qxUINT64_CLASS: return "uint64";
    case qxFUNCTION_CLASS: return "function_handle";
    default: return "unknown";
  }
}

}  // namespace zvhost
