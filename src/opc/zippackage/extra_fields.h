#pragma once
// Modification times in ZIP extra fields. DOS time in the entry header holds 1980 to 2107 in local
// time with two-second steps; the NTFS field (0x000a) holds any instant from 1601 in 100 ns steps,
// the extended-timestamp field (0x5455) whole seconds from 1901 to 2038. The writer puts the extended
// timestamp in local headers where it fits (Info-ZIP reads it there) and, in the central directory,
// the extended timestamp when it holds the time exactly, else NTFS; readers take NTFS first.
#include <array>
#include <cstdint>
#include <ctime>
#include <optional>

#include "opc/file_time.h"

namespace opc::zippackage::extra {

constexpr std::uint16_t kNtfsId = 0x000a;
constexpr std::uint16_t kExtendedTimestampId = 0x5455;

[[nodiscard]] std::optional<std::array<std::uint8_t, 32>> encodeNtfs(FileTime time);
[[nodiscard]] std::optional<FileTime> decodeNtfs(const std::uint8_t* data, std::uint16_t length);
[[nodiscard]] std::optional<std::array<std::uint8_t, 5>> encodeExtendedTimestamp(FileTime time);
[[nodiscard]] std::optional<FileTime> decodeExtendedTimestamp(const std::uint8_t* data, std::uint16_t length);
// `time` clamped into the range DOS time can hold.
[[nodiscard]] std::time_t clampToDosRange(FileTime time);

}  // namespace opc::zippackage::extra
