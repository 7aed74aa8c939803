#include "opc/zippackage/zip_format.h"

#include <algorithm>
#include <utility>

#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::zippackage {

using namespace le;

namespace {

constexpr std::uint16_t kMadeBy = (3u << 8) | 63;  // Unix, format 6.3
constexpr std::int64_t kSecondsFrom1601To1970 = 11644473600;
constexpr std::uint64_t kTicksPerSecond = 10'000'000;

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
  append16(out, kFlagUtf8);
  append16(out, h.method);
  const auto [date, clock] = dosDateTime(h.time);
  append16(out, clock);
  append16(out, date);
  append32(out, h.crc);
  append32(out, zip64Sizes ? kMax32 : static_cast<std::uint32_t>(h.compressedSize));
  append32(out, zip64Sizes ? kMax32 : static_cast<std::uint32_t>(h.size));
}

void appendField(std::string& out, std::uint16_t id, const std::uint8_t* data, std::size_t size) {
  append16(out, id);
  append16(out, static_cast<std::uint16_t>(size));
  out.append(reinterpret_cast<const char*>(data), size);
}

}  // namespace

std::optional<std::string_view> findExtra(std::string_view extra, std::uint16_t id) {
  while (extra.size() >= 4) {
    const std::uint16_t length = get16(extra.data() + 2);
    if (length > extra.size() - 4) break;
    if (get16(extra.data()) == id) return extra.substr(4, length);
    extra.remove_prefix(4u + length);
  }
  return std::nullopt;
}

std::size_t localHeaderLength(const std::uint8_t* header, std::size_t available) {
  if (available < kLocalHeaderSize || get32(header) != kLocalSignature) return 0;
  return kLocalHeaderSize + get16(header + 26) + get16(header + 28);
}

std::string localHeader(std::string_view name, const EntryHeader& h, std::uint64_t offset) {
  std::string out;
  const auto ut = h.exactTime ? extra::encodeExtendedTimestamp(h.time) : std::nullopt;
  const std::size_t extraLength = (h.zip64 ? 20 : 0) + (ut ? 4 + ut->size() : 0);
  out.reserve(kLocalHeaderSize + name.size() + extraLength);
  append32(out, kLocalSignature);
  appendCommon(out, h, offset, h.zip64);
  append16(out, static_cast<std::uint16_t>(name.size()));
  append16(out, static_cast<std::uint16_t>(extraLength));
  out += name;
  if (h.zip64) {
    append16(out, kZip64Id);
    append16(out, 16);
    append64(out, h.size);
    append64(out, h.compressedSize);
  }
  if (ut) appendField(out, extra::kExtendedTimestampId, ut->data(), ut->size());
  return out;
}

// Sizes go in the ZIP64 field when the local header has them there or they need it (readers check
// that both headers agree), the offset there when it needs it; the time to the second in the
// extended timestamp (9 bytes against NTFS's 36 a record: the package of a tree of small files stays
// no larger than Info-ZIP's, which keeps seconds too), NTFS only for instants outside its range.
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
    if (const auto ut = extra::encodeExtendedTimestamp(h.time)) {
      appendField(timeField, extra::kExtendedTimestampId, ut->data(), ut->size());
    } else if (const auto ntfs = extra::encodeNtfs(h.time)) {
      appendField(timeField, extra::kNtfsId, ntfs->data(), ntfs->size());
    }
  }
  const std::size_t extraLength = (zip64.empty() ? 0 : 4 + zip64.size()) + timeField.size();
  std::string out;
  out.reserve(kRecordSize + name.size() + extraLength);
  append32(out, kRecordSignature);
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
  if (!zip64.empty()) appendField(out, kZip64Id, reinterpret_cast<const std::uint8_t*>(zip64.data()), zip64.size());
  out += timeField;
  return out;
}

std::string endRecords(std::uint64_t count, std::uint64_t offset, std::uint64_t size) {
  std::string out;
  if (count >= 0xFFFF || offset >= kMax32 || size >= kMax32) {
    append32(out, kEnd64Signature);
    append64(out, kEnd64Size - 12);
    append16(out, kMadeBy);
    append16(out, 45);
    append32(out, 0);
    append32(out, 0);
    append64(out, count);
    append64(out, count);
    append64(out, size);
    append64(out, offset);
    append32(out, kLocatorSignature);
    append32(out, 0);
    append64(out, offset + size);
    append32(out, 1);
  }
  append32(out, kEndSignature);
  append16(out, 0);
  append16(out, 0);
  append16(out, static_cast<std::uint16_t>(std::min<std::uint64_t>(count, 0xFFFF)));
  append16(out, static_cast<std::uint16_t>(std::min<std::uint64_t>(count, 0xFFFF)));
  append32(out, static_cast<std::uint32_t>(std::min<std::uint64_t>(size, kMax32)));
  append32(out, static_cast<std::uint32_t>(std::min<std::uint64_t>(offset, kMax32)));
  append16(out, 0);
  return out;
}

std::string relocatedRecord(std::string record, std::uint64_t offset) {
  char* r = record.data();
  const std::size_t nameLength = get16(r + 28);
  const std::string_view name(r + kRecordSize, nameLength);
  if (opc::detail::isAscii(name)) {
    put16(r + 8, static_cast<std::uint16_t>(get16(r + 8) | kFlagUtf8));
  }
  const std::size_t extraAt = kRecordSize + nameLength;
  const std::size_t extraLength = get16(r + 30);
  const bool hadOffset = get32(r + 42) == kMax32;
  if (!hadOffset && offset < kMax32) {
    put32(r + 42, static_cast<std::uint32_t>(offset));
    return record;
  }
  // The offset lives in the ZIP64 extra field, after the sizes that overflow; version 4.5 then.
  const std::size_t before = (get32(r + 24) == kMax32 ? 8 : 0) + (get32(r + 20) == kMax32 ? 8 : 0);
  put32(r + 42, kMax32);
  put16(r + 6, std::max<std::uint16_t>(get16(r + 6), 45));
  char value[8];
  put64(value, offset);
  const auto zip64 = findExtra(std::string_view(r + extraAt, extraLength), kZip64Id);
  const std::size_t at = zip64 ? static_cast<std::size_t>(zip64->data() - r) : 0;  // its data
  if (zip64 && hadOffset && zip64->size() >= before + 8) {
    std::copy_n(value, 8, r + at + before);
    return record;
  }
  if (zip64 && !hadOffset && zip64->size() >= before) {
    put16(r + at - 2, static_cast<std::uint16_t>(zip64->size() + 8));
    put16(r + 30, static_cast<std::uint16_t>(extraLength + 8));
    record.insert(at + before, value, 8);
    return record;
  }
  if (zip64 || hadOffset || before != 0) throw Exception("an entry's ZIP64 extra field is malformed");
  std::string field;
  appendField(field, kZip64Id, reinterpret_cast<const std::uint8_t*>(value), 8);
  record.insert(extraAt + extraLength, field);
  put16(record.data() + 30, static_cast<std::uint16_t>(extraLength + field.size()));
  return record;
}

namespace extra {

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

std::optional<FileTime> decodeNtfs(std::string_view data) {
  std::size_t pos = 4;  // reserved
  while (pos + 4 <= data.size()) {
    const std::uint16_t tag = get16(data.data() + pos);
    const std::uint16_t size = get16(data.data() + pos + 2);
    pos += 4;
    if (pos + size > data.size()) return std::nullopt;
    if (tag == 0x0001 && size >= 8) {
      const std::uint64_t ticks = get64(data.data() + pos);
      return FileTime{static_cast<std::int64_t>(ticks / kTicksPerSecond) - kSecondsFrom1601To1970,
                      static_cast<std::uint32_t>(ticks % kTicksPerSecond) * 100};
    }
    pos += size;
  }
  return std::nullopt;
}

std::optional<std::array<std::uint8_t, 5>> encodeExtendedTimestamp(FileTime time) {
  if (time.seconds < INT32_MIN || time.seconds > INT32_MAX) return std::nullopt;
  std::array<std::uint8_t, 5> out{0x01};  // flag: modification time present
  put32(&out[1], static_cast<std::uint32_t>(static_cast<std::int32_t>(time.seconds)));
  return out;
}

std::optional<FileTime> decodeExtendedTimestamp(std::string_view data) {
  if (data.size() < 5 || (data[0] & 0x01) == 0) return std::nullopt;
  return FileTime{static_cast<std::int32_t>(get32(data.data() + 1)), 0};
}

std::time_t clampToDosRange(FileTime time) {
  constexpr std::int64_t low = 315619200;    // 1980-01-02T00:00:00Z: a day of margin for time zones
  constexpr std::int64_t high = 4354646400;  // 2107-12-30T00:00:00Z
  return static_cast<std::time_t>(std::clamp(time.seconds, low, high));
}

}  // namespace extra

}  // namespace opc::zippackage
