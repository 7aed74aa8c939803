#pragma once
// How a part's bytes are stored in the package: the one name for it across the OPC library. The
// values are the part information's compression types (1, deflate, is the default).
#include <cstdint>

namespace opc {

enum class Compression : std::uint8_t { Stored = 0, Deflated = 1 };

}  // namespace opc
