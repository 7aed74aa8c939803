#pragma once
// ZIP's records as bytes: little-endian fields, the signatures, method numbers and flags, the
// headers the writer makes and the extra fields that carry times. Internal to opc::zippackage: no other part of the library knows a record, a method number or a
// flag.
#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "opc/compression.h"
#include "opc/file_time.h"

namespace opc::zippackage {

namespace le {
// Fields of sizeof(T) bytes, least significant first.
template <class T>
T get(const void* p) {
  const auto* b = static_cast<const unsigned char*>(p);
  T v = 0;
  for (std::size_t i = sizeof(T); i-- > 0;) v = static_cast<T>(v << 8 | b[i]);
  return v;
}
template <class T>
void put(void* p, T v) {
  for (std::size_t i = 0; i < sizeof(T); ++i) static_cast<unsigned char*>(p)[i] = static_cast<unsigned char>(v >> 8 * i);
}
template <class T>
void append(std::string& s, T v) {
  for (std::size_t i = 0; i < sizeof(T); ++i) s.push_back(static_cast<char>(v >> 8 * i));
}
inline std::uint16_t get16(const void* p) { return get<std::uint16_t>(p); }
inline std::uint32_t get32(const void* p) { return get<std::uint32_t>(p); }
inline std::uint64_t get64(const void* p) { return get<std::uint64_t>(p); }
inline void put16(void* p, std::uint16_t v) { put(p, v); }
inline void put32(void* p, std::uint32_t v) { put(p, v); }
inline void put64(void* p, std::uint64_t v) { put(p, v); }
inline void append16(std::string& s, std::uint16_t v) { append(s, v); }
inline void append32(std::string& s, std::uint32_t v) { append(s, v); }
inline void append64(std::string& s, std::uint64_t v) { append(s, v); }
}  // namespace le

inline constexpr std::uint32_t kMax32 = 0xFFFFFFFF;
inline constexpr std::uint32_t kLocalSignature = 0x04034b50;
inline constexpr std::uint32_t kRecordSignature = 0x02014b50;
inline constexpr std::uint32_t kEndSignature = 0x06054b50;
inline constexpr std::uint32_t kLocatorSignature = 0x07064b50;
inline constexpr std::uint32_t kEnd64Signature = 0x06064b50;
inline constexpr std::size_t kLocalHeaderSize = 30;  // the fixed part, before name and extra field
inline constexpr std::size_t kRecordSize = 46;
inline constexpr std::size_t kEndSize = 22;
inline constexpr std::size_t kLocatorSize = 20;
inline constexpr std::size_t kEnd64Size = 56;
inline constexpr std::uint16_t kMethodStored = 0;
inline constexpr std::uint16_t kMethodDeflated = 8;
inline constexpr std::uint16_t kFlagEncrypted = 0x0001;
inline constexpr std::uint16_t kFlagStrongEncryption = 0x0040;
inline constexpr std::uint16_t kFlagUtf8 = 0x0800;
inline constexpr std::uint16_t kZip64Id = 0x0001;
inline constexpr std::uint32_t kDefaultExternal = (static_cast<std::uint32_t>(S_IFREG) | 0666u) << 16;

// The compression a method number stands for; nothing for a method this library does not read.
[[nodiscard]] inline std::optional<Compression> compressionOf(std::uint16_t method) {
  if (method == kMethodStored) return Compression::Stored;
  if (method == kMethodDeflated) return Compression::Deflated;
  return std::nullopt;
}

// The data of the first extra field `id` in `extra` (the extra bytes of a header), or nothing.
[[nodiscard]] std::optional<std::string_view> findExtra(std::string_view extra, std::uint16_t id);

// The whole local header's length (name and extra field included) from the `available` bytes read
// at its start, or 0 when they are no local header.
[[nodiscard]] std::size_t localHeaderLength(const std::uint8_t* header, std::size_t available);

// What the headers of one entry say.
struct EntryHeader {
  std::uint16_t method = kMethodStored;
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
// A central-directory record (as stored) rewritten for a local header at `offset`: the offset goes
// into the ZIP64 extra field (made or extended) when it needs 64 bits, and an ASCII name gets the
// UTF-8 flag (every name this writer makes is UTF-8; foreign ASCII names may lack it). Throws
// opc::Exception when the record's ZIP64 field is malformed.
[[nodiscard]] std::string relocatedRecord(std::string record, std::uint64_t offset);

// Modification times in extra fields. DOS time in the entry header holds 1980 to 2107 in local time
// with two-second steps; the NTFS field holds any instant from 1601 in 100 ns steps, the
// extended-timestamp field whole seconds from 1901 to 2038. The writer puts the extended timestamp in
// local headers where it fits (Info-ZIP reads it there) and in the central directory, so a time is
// kept to the second; NTFS only where the extended timestamp cannot hold the instant. Readers take
// NTFS first.
namespace extra {
inline constexpr std::uint16_t kNtfsId = 0x000a;
inline constexpr std::uint16_t kExtendedTimestampId = 0x5455;
[[nodiscard]] std::optional<std::array<std::uint8_t, 32>> encodeNtfs(FileTime time);
[[nodiscard]] std::optional<FileTime> decodeNtfs(std::string_view data);
[[nodiscard]] std::optional<std::array<std::uint8_t, 5>> encodeExtendedTimestamp(FileTime time);
[[nodiscard]] std::optional<FileTime> decodeExtendedTimestamp(std::string_view data);
// `time` clamped into the range DOS time can hold.
[[nodiscard]] std::time_t clampToDosRange(FileTime time);
}  // namespace extra

}  // namespace opc::zippackage
