#pragma once
// The central directory of a ZIP archive, read in two reads: what the package reader lists and
// copies unchanged entries from. Entry data is never read here. Internal to opc::zippackage.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/ustring.h"
#include "opc/zippackage/zip_format.h"

namespace opc::zippackage {

// Opens the package file at `path` (`narrowPath` in UTF-8) read only and returns the descriptor,
// which the caller owns. Throws model::PackageNotFound when there is no such file, opc::Exception when
// it cannot be opened or is a folder.
[[nodiscard]] int openPackageFile(const ustring& path, const std::string& narrowPath);

// Reads `size` bytes at `offset` of `fd`, fewer only where the file ends. Throws opc::Exception naming
// `path` when the read fails.
[[nodiscard]] std::size_t preadFull(int fd, void* into, std::size_t size, std::uint64_t offset, const std::string& path);

// One central-directory record, ZIP64 fields resolved.
struct DirectoryRecord {
  std::string_view name;  // the stored name bytes; a view into CentralDirectory::bytes()
  std::uint64_t localHeaderOffset = 0;
  std::uint64_t compressedSize = 0;
  std::uint64_t size = 0;
  std::uint32_t crc = 0;
  std::uint16_t method = 0;
  std::uint16_t flags = 0;
  std::size_t recordOffset = 0;  // where the record starts in bytes()
  std::size_t recordLength = 0;  // fixed part, name, extra field and comment
  [[nodiscard]] bool encrypted() const { return (flags & (kFlagEncrypted | kFlagStrongEncryption)) != 0; }
};

// The central directory of an archive, read in two reads. Entry data is never read here.
class CentralDirectory {
 public:
  // Reads the end records and the directory of the archive open on `fd`. Throws opc::Exception
  // naming `path` when they are malformed, claim more than kMaxEntries entries or kMaxBytes of
  // directory, or lie outside the file; the entries' data is not checked.
  static CentralDirectory read(int fd, const std::string& path);

  static constexpr std::uint64_t kMaxEntries = 1'000'000;
  static constexpr std::uint64_t kMaxBytes = 256u << 20;

  [[nodiscard]] const std::vector<DirectoryRecord>& records() const { return records_; }
  // The directory as stored: records back to back.
  [[nodiscard]] const std::string& bytes() const { return bytes_; }
  [[nodiscard]] std::string_view recordBytes(const DirectoryRecord& r) const {
    return std::string_view(bytes_).substr(r.recordOffset, r.recordLength);
  }
  // Where the directory starts in the file.
  [[nodiscard]] std::uint64_t offset() const { return offset_; }

 private:
  std::string bytes_;
  std::vector<DirectoryRecord> records_;
  std::uint64_t offset_ = 0;
};

}  // namespace opc::zippackage
