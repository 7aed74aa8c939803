#pragma once
// The headers the package writer makes: local headers, central-directory records and end records.
#include <cstdint>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "opc/file_time.h"

namespace opc::zippackage {

inline constexpr std::uint32_t kMax32 = 0xFFFFFFFF;
inline constexpr std::uint32_t kDefaultExternal = (static_cast<std::uint32_t>(S_IFREG) | 0666u) << 16;

// What the headers of one entry say.
struct EntryHeader {
  std::uint16_t method = 0;
  std::uint32_t crc = 0;
  std::uint64_t compressedSize = 0;
  std::uint64_t size = 0;
  bool zip64 = false;      // the local header holds both sizes in a ZIP64 field
  FileTime time{};         // the entry's modification time
  bool exactTime = false;  // `time` came with the entry (else it is the time of writing, DOS time only)
  std::uint32_t external = kDefaultExternal;
};

// The local header of an entry at `offset`; its length depends only on the name, h.zip64 and
// h.exactTime, so that it can be rewritten in place once sizes and CRC are known.
[[nodiscard]] std::string localHeader(std::string_view name, const EntryHeader& h, std::uint64_t offset);
// The central-directory record of that entry.
[[nodiscard]] std::string centralRecord(std::string_view name, const EntryHeader& h, std::uint64_t offset);
// The end records after a directory of `count` records, `size` bytes at `offset` (ZIP64 ones first
// when any of them needs it).
[[nodiscard]] std::string endRecords(std::uint64_t count, std::uint64_t offset, std::uint64_t size);

}  // namespace opc::zippackage
