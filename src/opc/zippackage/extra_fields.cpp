#include "opc/zippackage/extra_fields.h"

#include "opc/zippackage/little_endian.h"

namespace opc::zippackage::extra {

namespace {

constexpr std::int64_t kSecondsFrom1601To1970 = 11644473600;
constexpr std::uint64_t kTicksPerSecond = 10'000'000;

using le::get16;
using le::get64;
using le::put16;
using le::put64;

}  // namespace

std::optional<std::array<std::uint8_t, 32>> encodeNtfs(FileTime time) {
  if (time.seconds < -kSecondsFrom1601To1970) return std::nullopt;
  const auto since1601 = static_cast<std::uint64_t>(time.seconds + kSecondsFrom1601To1970);
  if (since1601 > (UINT64_MAX - kTicksPerSecond) / kTicksPerSecond) return std::nullopt;
  const std::uint64_t ticks = since1601 * kTicksPerSecond + time.nanoseconds / 100;
  std::array<std::uint8_t, 32> out{};
  put16(&out[4], 0x0001);  // attribute tag 1: the three file times
  put16(&out[6], 24);
  put64(&out[8], ticks);   // modification
  put64(&out[16], ticks);  // access
  put64(&out[24], ticks);  // creation
  return out;
}

std::optional<FileTime> decodeNtfs(const std::uint8_t* data, std::uint16_t length) {
  std::size_t pos = 4;  // reserved
  while (pos + 4 <= length) {
    const std::uint16_t tag = get16(data + pos);
    const std::uint16_t size = get16(data + pos + 2);
    pos += 4;
    if (pos + size > length) return std::nullopt;
    if (tag == 0x0001 && size >= 8) {
      const std::uint64_t ticks = get64(data + pos);
      FileTime t;
      t.seconds = static_cast<std::int64_t>(ticks / kTicksPerSecond) - kSecondsFrom1601To1970;
      t.nanoseconds = static_cast<std::uint32_t>(ticks % kTicksPerSecond) * 100;
      return t;
    }
    pos += size;
  }
  return std::nullopt;
}

std::optional<std::array<std::uint8_t, 5>> encodeExtendedTimestamp(FileTime time) {
  if (time.seconds < INT32_MIN || time.seconds > INT32_MAX) return std::nullopt;
  const auto value = static_cast<std::uint32_t>(static_cast<std::int32_t>(time.seconds));
  return std::array<std::uint8_t, 5>{0x01, static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
                                     static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

std::optional<FileTime> decodeExtendedTimestamp(const std::uint8_t* data, std::uint16_t length) {
  if (length < 5 || (data[0] & 0x01) == 0) return std::nullopt;
  const std::uint32_t raw = static_cast<std::uint32_t>(data[1]) | (static_cast<std::uint32_t>(data[2]) << 8) |
                            (static_cast<std::uint32_t>(data[3]) << 16) | (static_cast<std::uint32_t>(data[4]) << 24);
  return FileTime{static_cast<std::int32_t>(raw), 0};
}

std::time_t clampToDosRange(FileTime time) {
  constexpr std::int64_t low = 315619200;    // 1980-01-02T00:00:00Z: a day of margin for time zones
  constexpr std::int64_t high = 4354646400;  // 2107-12-30T00:00:00Z
  return static_cast<std::time_t>(time.seconds < low ? low : time.seconds > high ? high : time.seconds);
}

}  // namespace opc::zippackage::extra
