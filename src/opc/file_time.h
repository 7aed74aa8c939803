#pragma once
// A file modification time with the full range of the file systems we meet (years 1601 to 30827 and
// beyond), unlike DOS time (1980 to 2107) or a 64-bit nanosecond count (1678 to 2262).
#include <compare>
#include <cstdint>

namespace opc {

struct FileTime {
  std::int64_t seconds = 0;       // since 1970-01-01T00:00:00Z, negative before
  std::uint32_t nanoseconds = 0;  // 0 to 999'999'999
  auto operator<=>(const FileTime&) const = default;
};

}  // namespace opc
