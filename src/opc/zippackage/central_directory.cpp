#include "opc/zippackage/central_directory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>

#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::zippackage {

namespace {

using namespace le;

[[noreturn]] void malformed(const std::string& path, const std::string& what) {
  throw Exception("cannot open package '" + path + "': " + what);
}

void readExactly(int fd, char* into, std::size_t size, std::uint64_t at, const std::string& path) {
  if (detail::preadFull(fd, into, size, at, path) != size) malformed(path, "the file ends early");
}

// Replaces the 32-bit fields that hold 0xFFFFFFFF by their values in the ZIP64 extra field, in
// the order the format gives: size, compressed size, local header offset.
void resolveZip64(ZipEntry& record, std::string_view extra, const std::string& path) {
  const bool wantSize = record.size == kMax32;
  const bool wantCompressed = record.compressedSize == kMax32;
  const bool wantOffset = record.localHeaderOffset == kMax32;
  if (!wantSize && !wantCompressed && !wantOffset) return;
  const auto field = findExtra(extra, kZip64Id);
  if (!field) malformed(path, "an entry's sizes need a ZIP64 extra field that is missing");
  std::string_view fields = *field;
  const auto take = [&](std::uint64_t& value) {
    if (fields.size() < 8) malformed(path, "a ZIP64 extra field is too short");
    value = get64(fields.data());
    fields.remove_prefix(8);
  };
  if (wantSize) take(record.size);
  if (wantCompressed) take(record.compressedSize);
  if (wantOffset) take(record.localHeaderOffset);
}

bool isUtf8(std::string_view text) {
  if (detail::isAscii(text)) return true;  // cheaply
  try {
    (void)detail::fromUtf8(text, "name");
    return true;
  } catch (const Exception&) {
    return false;
  }
}

// Names stored without the UTF-8 flag that are not UTF-8 were written in code page 437, the ZIP
// format's original character set.
std::string cp437ToUtf8(std::string_view text) {
  static constexpr char16_t kHigh[128] = {
      0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF, 0x00EE,
      0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9, 0x00FF, 0x00D6,
      0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x00F1, 0x00D1, 0x00AA,
      0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB, 0x2591, 0x2592, 0x2593, 0x2502,
      0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510, 0x2514,
      0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F, 0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550,
      0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C,
      0x2588, 0x2584, 0x258C, 0x2590, 0x2580, 0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4,
      0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320,
      0x2321, 0x00F7, 0x2248, 0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
  };
  std::string out;
  out.reserve(text.size() * 2);
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c < 0x80) {
      out += ch;
      continue;
    }
    const char16_t u = kHigh[c - 0x80];
    if (u < 0x800) {
      out += static_cast<char>(0xC0 | (u >> 6));
    } else {
      out += static_cast<char>(0xE0 | (u >> 12));
      out += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
    }
    out += static_cast<char>(0x80 | (u & 0x3F));
  }
  return out;
}

// What the directory record says of the entry beyond its sizes: the time from an NTFS or
// extended-timestamp extra field, else its DOS time (local time); the mode when made on Unix.
EntryAttributes readAttributes(std::string_view record) {
  EntryAttributes attributes;
  const std::size_t nameLength = get16(record.data() + 28);
  const std::string_view extra = record.substr(kRecordSize + nameLength, get16(record.data() + 30));
  attributes.lastModified = extra::decodeNtfs(findExtra(extra, extra::kNtfsId).value_or(""));
  if (!attributes.lastModified) {
    attributes.lastModified = extra::decodeExtendedTimestamp(findExtra(extra, extra::kExtendedTimestampId).value_or(""));
  }
  if (!attributes.lastModified) {
    const std::uint16_t time = get16(record.data() + 12);
    const std::uint16_t date = get16(record.data() + 14);
    std::tm tm{};
    tm.tm_isdst = -1;
    tm.tm_year = ((date >> 9) & 127) + 1980 - 1900;
    tm.tm_mon = ((date >> 5) & 15) - 1;
    tm.tm_mday = date & 31;
    tm.tm_hour = (time >> 11) & 31;
    tm.tm_min = (time >> 5) & 63;
    tm.tm_sec = (time << 1) & 62;
    attributes.lastModified = FileTime{static_cast<std::int64_t>(std::mktime(&tm)), 0};
  }
  if ((get16(record.data() + 4) >> 8) == 3) {  // made on Unix: the mode is in the external attributes
    const std::uint32_t mode = get32(record.data() + 38) >> 16;
    if (mode != 0) attributes.unixMode = mode & 07777;
  }
  return attributes;
}

}  // namespace

int openPackageFile(const ustring& path, const std::string& narrowPath) {
  detail::UniqueFd fd(::open(narrowPath.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) {
    if (errno == ENOENT || errno == ENOTDIR) throw model::PackageNotFound(path);
    throw Exception(detail::osError("cannot open package", narrowPath, errno));
  }
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) throw Exception(detail::osError("cannot open package", narrowPath, errno));
  if (S_ISDIR(st.st_mode)) throw Exception("cannot open package '" + narrowPath + "': it is a folder");
  return fd.release();
}

CentralDirectory CentralDirectory::read(int fd, const std::string& path) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) throw Exception(detail::osError("cannot open package", path, errno));
  const auto fileSize = static_cast<std::uint64_t>(st.st_size);
  if (fileSize < kEndSize) malformed(path, "it is no ZIP archive (too short)");

  // The end record is the last one whose comment reaches no further than the file.
  const std::size_t tailSize = static_cast<std::size_t>(std::min<std::uint64_t>(fileSize, kEndSize + 0xFFFF));
  std::string tail(tailSize, '\0');
  readExactly(fd, tail.data(), tailSize, fileSize - tailSize, path);
  std::size_t end = std::string::npos;
  for (std::size_t i = tailSize - kEndSize + 1; i-- > 0;) {
    if (get32(tail.data() + i) == kEndSignature && i + kEndSize + get16(tail.data() + i + 20) <= tailSize) {
      end = i;
      break;
    }
  }
  if (end == std::string::npos) malformed(path, "it is no ZIP archive (no end of central directory)");
  const std::uint64_t endAt = fileSize - tailSize + end;
  const char* e = tail.data() + end;
  if (get16(e + 4) != 0 || get16(e + 6) != 0) malformed(path, "archives split over several disks are not supported");
  std::uint64_t count = get16(e + 10);
  std::uint64_t size = get32(e + 12);
  std::uint64_t offset = get32(e + 16);
  std::uint64_t directoryEnd = endAt;  // the directory must end before the end records

  if (endAt >= kLocatorSize) {
    char locator[kLocatorSize];
    readExactly(fd, locator, kLocatorSize, endAt - kLocatorSize, path);
    if (get32(locator) == kLocatorSignature) {
      const std::uint64_t end64At = get64(locator + 8);
      if (end64At > endAt - kLocatorSize || endAt - kLocatorSize - end64At < kEnd64Size) {
        malformed(path, "the ZIP64 end record lies outside the file");
      }
      char end64[kEnd64Size];
      readExactly(fd, end64, kEnd64Size, end64At, path);
      if (get32(end64) != kEnd64Signature) malformed(path, "the ZIP64 end record is missing");
      count = get64(end64 + 32);
      size = get64(end64 + 40);
      offset = get64(end64 + 48);
      directoryEnd = end64At;
    }
  }
  if (count > kMaxEntries) {
    malformed(path, "it has " + std::to_string(count) + " items, more than the " + std::to_string(kMaxEntries) +
                        " a package may hold");
  }
  if (size > kMaxBytes) malformed(path, "its central directory is larger than " + std::to_string(kMaxBytes) + " bytes");
  if (offset > directoryEnd || size > directoryEnd - offset) malformed(path, "the central directory lies outside the file");
  if (size < count * kRecordSize) malformed(path, "the central directory is shorter than its entries");

  CentralDirectory directory;
  directory.offset_ = offset;
  directory.size_ = static_cast<std::size_t>(size);
  // Read into at once: no zero-fill. A directory of a huge page or more goes into transparent huge pages
  // where the kernel has them: one fault a 2 MiB page instead of 512, most of what reading it costs.
  constexpr std::size_t kHugePage = 2u << 20;
  const bool huge = directory.size_ >= kHugePage;
  const std::size_t room = huge ? (directory.size_ + kHugePage - 1) / kHugePage * kHugePage : directory.size_ + 1;
  directory.bytes_.reset(static_cast<char*>(huge ? std::aligned_alloc(kHugePage, room) : std::malloc(room)));
  if (!directory.bytes_) throw std::bad_alloc();
  if (huge) ::madvise(directory.bytes_.get(), room, MADV_HUGEPAGE);  // a hint: refused, the pages stay small
  readExactly(fd, directory.bytes_.get(), directory.size_, offset, path);
  directory.records_.reserve(static_cast<std::size_t>(count));
  const std::string_view bytes = directory.bytes();
  std::size_t at = 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    if (bytes.size() - at < kRecordSize || get32(bytes.data() + at) != kRecordSignature) {
      malformed(path, "central directory record " + std::to_string(i) + " is malformed");
    }
    const char* r = bytes.data() + at;
    const std::size_t nameLength = get16(r + 28);
    const std::size_t extraLength = get16(r + 30);
    const std::size_t length = kRecordSize + nameLength + extraLength + get16(r + 32);
    if (length > bytes.size() - at) malformed(path, "central directory record " + std::to_string(i) + " is cut short");
    ZipEntry record;
    record.index = static_cast<std::uint32_t>(i);
    record.flags = get16(r + 8);
    record.compressionMethod = get16(r + 10);
    record.compression = compressionOf(record.compressionMethod);
    record.encrypted = (record.flags & (kFlagEncrypted | kFlagStrongEncryption)) != 0;
    record.crc = get32(r + 16);
    record.compressedSize = get32(r + 20);
    record.size = get32(r + 24);
    record.localHeaderOffset = get32(r + 42);
    const std::string_view name(r + kRecordSize, nameLength);
    record.name = (record.flags & kFlagUtf8) != 0 || isUtf8(name)
                      ? name
                      : directory.convertedNames_.emplace_back(cp437ToUtf8(name));
    record.recordOffset = static_cast<std::uint32_t>(at);
    record.recordLength = static_cast<std::uint32_t>(length);
    record.attributes = readAttributes(std::string_view(r, length));
    resolveZip64(record, std::string_view(r + kRecordSize + nameLength, extraLength), path);
    if (record.localHeaderOffset > offset) {
      malformed(path, "entry '" + std::string(record.name) + "' starts after the central directory");
    }
    directory.records_.push_back(record);
    at += length;
  }
  return directory;
}

}  // namespace opc::zippackage
