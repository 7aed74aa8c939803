#pragma once
// The central directory of a ZIP archive, read in two reads: what the package reader lists and
// copies unchanged entries from. Entry data is never read here. Internal to opc::zippackage.
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/ustring.h"
#include "opc/zippackage/zip_format.h"
#include "opc/zippackage/zip_physical_package.h"

namespace opc::zippackage {

// Opens the package file at `path` (`narrowPath` in UTF-8) read only and returns the descriptor,
// which the caller owns. Throws model::PackageNotFound when there is no such file, opc::Exception when
// it cannot be opened or is a folder.
[[nodiscard]] int openPackageFile(const ustring& path, const std::string& narrowPath);

// The central directory of an archive, read in two reads. Entry data is never read here.
class CentralDirectory {
 public:
  // Reads the end records and the directory of the archive open on `fd`. Throws opc::Exception
  // naming `path` when they are malformed, claim more than kMaxEntries entries or kMaxBytes of
  // directory, or lie outside the file; the entries' data is not checked.
  static CentralDirectory read(int fd, const std::string& path);

  static constexpr std::uint64_t kMaxEntries = 1'000'000;
  static constexpr std::uint64_t kMaxBytes = 256u << 20;

  [[nodiscard]] const std::vector<ZipEntry>& records() const { return records_; }
  // The directory as stored: records back to back.
  [[nodiscard]] std::string_view bytes() const { return {bytes_.get(), size_}; }
  // The entry's name as stored, before any conversion to UTF-8.
  [[nodiscard]] std::string_view storedName(const ZipEntry& e) const {
    return bytes().substr(e.recordOffset + kRecordSize, le::get16(bytes_.get() + e.recordOffset + 28));
  }
  // Where the directory starts in the file.
  [[nodiscard]] std::uint64_t offset() const { return offset_; }

 private:
  std::unique_ptr<char[], void (*)(void*)> bytes_{nullptr, std::free};  // malloc's, or aligned_alloc's
  std::size_t size_ = 0;
  std::vector<ZipEntry> records_;
  std::deque<std::string> convertedNames_;  // names read as code page 437, in UTF-8
  std::uint64_t offset_ = 0;
};

}  // namespace opc::zippackage
