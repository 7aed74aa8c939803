#include "opc/zippackage/zip_headers.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "opc/zippackage/extra_fields.h"
#include "opc/zippackage/little_endian.h"

namespace opc::zippackage {

namespace {

using le::append16;
using le::append32;
using le::append64;

constexpr std::uint16_t kUtf8Flag = 0x0800;
constexpr std::uint16_t kMadeBy = (3u << 8) | 63;  // Unix, format 6.3

// DOS date and time in local time, as ZIP readers take them.
std::pair<std::uint16_t, std::uint16_t> dosDateTime(FileTime time) {
  const std::time_t t = extra::clampToDosRange(time);
  std::tm tm{};
  ::localtime_r(&t, &tm);
  if (tm.tm_year < 80) return {static_cast<std::uint16_t>((1u << 5) | 1u), 0};
  const auto date = static_cast<std::uint16_t>(((tm.tm_year - 80) << 9) | ((tm.tm_mon + 1) << 5) | tm.tm_mday);
  const auto clock = static_cast<std::uint16_t>((tm.tm_hour << 11) | (tm.tm_min << 5) | (tm.tm_sec >> 1));
  return {date, clock};
}

// "Version needed": 4.5 for an entry with any ZIP64 field (its sizes, or its offset in the
// directory), the same in both headers; else 2.0.
std::uint16_t versionNeeded(const EntryHeader& h, std::uint64_t offset) {
  return h.zip64 || h.size >= kMax32 || h.compressedSize >= kMax32 || offset >= kMax32 ? 45 : 20;
}

// The fixed part shared by local and central headers from "version needed" to the sizes; with
// `zip64Sizes` both sizes read 0xFFFFFFFF and live in the ZIP64 field.
void appendCommon(std::string& out, const EntryHeader& h, std::uint64_t offset, bool zip64Sizes) {
  append16(out, versionNeeded(h, offset));
  append16(out, kUtf8Flag);
  append16(out, h.method);
  const auto [date, clock] = dosDateTime(h.time);
  append16(out, clock);
  append16(out, date);
  append32(out, h.crc);
  append32(out, zip64Sizes ? kMax32 : static_cast<std::uint32_t>(h.compressedSize));
  append32(out, zip64Sizes ? kMax32 : static_cast<std::uint32_t>(h.size));
}

}  // namespace

std::string localHeader(std::string_view name, const EntryHeader& h, std::uint64_t offset) {
  std::string out;
  const auto ut = h.exactTime ? extra::encodeExtendedTimestamp(h.time) : std::nullopt;
  const std::size_t extraLength = (h.zip64 ? 20 : 0) + (ut ? 4 + ut->size() : 0);
  out.reserve(30 + name.size() + extraLength);
  append32(out, 0x04034b50);
  appendCommon(out, h, offset, h.zip64);
  append16(out, static_cast<std::uint16_t>(name.size()));
  append16(out, static_cast<std::uint16_t>(extraLength));
  out += name;
  if (h.zip64) {
    append16(out, 0x0001);
    append16(out, 16);
    append64(out, h.size);
    append64(out, h.compressedSize);
  }
  if (ut) {
    append16(out, extra::kExtendedTimestampId);
    append16(out, static_cast<std::uint16_t>(ut->size()));
    out.append(reinterpret_cast<const char*>(ut->data()), ut->size());
  }
  return out;
}

// The central-directory record: sizes in the ZIP64 field when the local header has them there or
// they need it (readers check that both headers agree), the offset there when it needs it; the
// time in the shortest field that holds it exactly (the extended timestamp for whole seconds it
// can hold, else NTFS), which keeps a tree's directory no longer than Info-ZIP's.
std::string centralRecord(std::string_view name, const EntryHeader& h, std::uint64_t offset) {
  const bool zip64Sizes = h.zip64 || h.size >= kMax32 || h.compressedSize >= kMax32;
  std::string zip64;
  if (zip64Sizes) {
    append64(zip64, h.size);
    append64(zip64, h.compressedSize);
  }
  if (offset >= kMax32) append64(zip64, offset);
  std::string timeField;
  if (h.exactTime) {
    const auto ut = extra::encodeExtendedTimestamp(h.time);
    if (ut && h.time.nanoseconds == 0) {
      append16(timeField, extra::kExtendedTimestampId);
      append16(timeField, static_cast<std::uint16_t>(ut->size()));
      timeField.append(reinterpret_cast<const char*>(ut->data()), ut->size());
    } else if (const auto ntfs = extra::encodeNtfs(h.time)) {
      append16(timeField, extra::kNtfsId);
      append16(timeField, static_cast<std::uint16_t>(ntfs->size()));
      timeField.append(reinterpret_cast<const char*>(ntfs->data()), ntfs->size());
    }
  }
  const std::size_t extraLength = (zip64.empty() ? 0 : 4 + zip64.size()) + timeField.size();
  std::string out;
  out.reserve(46 + name.size() + extraLength);
  append32(out, 0x02014b50);
  append16(out, kMadeBy);
  appendCommon(out, h, offset, zip64Sizes);
  append16(out, static_cast<std::uint16_t>(name.size()));
  append16(out, static_cast<std::uint16_t>(extraLength));
  append16(out, 0);  // comment
  append16(out, 0);  // disk
  append16(out, 0);  // internal attributes
  append32(out, h.external);
  append32(out, static_cast<std::uint32_t>(std::min<std::uint64_t>(offset, kMax32)));
  out += name;
  if (!zip64.empty()) {
    append16(out, 0x0001);
    append16(out, static_cast<std::uint16_t>(zip64.size()));
    out += zip64;
  }
  out += timeField;
  return out;
}

std::string endRecords(std::uint64_t count, std::uint64_t offset, std::uint64_t size) {
  std::string out;
  if (count >= 0xFFFF || offset >= kMax32 || size >= kMax32) {
    append32(out, 0x06064b50);
    append64(out, 44);
    append16(out, kMadeBy);
    append16(out, 45);
    append32(out, 0);
    append32(out, 0);
    append64(out, count);
    append64(out, count);
    append64(out, size);
    append64(out, offset);
    append32(out, 0x07064b50);
    append32(out, 0);
    append64(out, offset + size);
    append32(out, 1);
  }
  append32(out, 0x06054b50);
  append16(out, 0);
  append16(out, 0);
  append16(out, static_cast<std::uint16_t>(std::min<std::uint64_t>(count, 0xFFFF)));
  append16(out, static_cast<std::uint16_t>(std::min<std::uint64_t>(count, 0xFFFF)));
  append32(out, static_cast<std::uint32_t>(std::min<std::uint64_t>(size, kMax32)));
  append32(out, static_cast<std::uint32_t>(std::min<std::uint64_t>(offset, kMax32)));
  append16(out, 0);
  return out;
}

}  // namespace opc::zippackage
