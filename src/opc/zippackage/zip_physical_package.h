#pragma once
// The ZIP container of a package: read with the directory reader and pread, written entry by entry.
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/ustring.h"
#include "opc/content_source.h"
#include "opc/file_time.h"
#include "opc/streams.h"

namespace opc::zippackage {

class CentralDirectory;

// Attributes of an entry beyond its name and bytes.
struct EntryAttributes {
  std::optional<FileTime> lastModified;  // from an NTFS or extended-timestamp extra field, else DOS time
  std::optional<std::uint32_t> unixMode; // permission bits 07777 when made on Unix
};

enum class Compression { Stored, Deflated };

struct ZipEntry {
  std::uint64_t index = 0;
  // UTF-8 (names without the UTF-8 flag that are not UTF-8 are read as code page 437): a view into
  // the open archive's directory, valid until closeArchive().
  std::string_view name;
  std::uint64_t size = 0;
  std::uint64_t compressedSize = 0;
  std::uint16_t compressionMethod = 0;  // ZIP method number: 0 stored, 8 deflate
  std::uint32_t crc = 0;
  bool encrypted = false;
  EntryAttributes attributes;
};

// Deflate data made beforehand, stored as is: `compressed` yields the raw deflate stream of
// `uncompressedSize` bytes whose CRC-32 is `crc`.
struct PrecompressedContent {
  std::shared_ptr<const ContentSource> compressed;
  std::uint64_t compressedSize = 0;
  std::uint64_t uncompressedSize = 0;
  std::uint32_t crc = 0;
};

class ZipWriter;

// The package file at one path. Reading: openArchive() opens the existing file read only and lists
// its entries; openEntry() streams one entry's bytes. Writing: createWriter() starts a new archive
// that replaces the file when committed. Not copyable, not thread-safe.
//
// `durable`: true makes commit() fsync the new file before the rename and the folder after it, so a
// power loss cannot leave a torn or empty package; false skips both syncs (scratch packages, tests).
// The rename itself (and with it the guarantee that a failed or killed write leaves the old file
// whole) happens either way.
class ZipPhysicalPackage {
 public:
  ZipPhysicalPackage(const ustring& path, bool durable);
  ~ZipPhysicalPackage();
  ZipPhysicalPackage(const ZipPhysicalPackage&) = delete;
  ZipPhysicalPackage& operator=(const ZipPhysicalPackage&) = delete;

  [[nodiscard]] const ustring& getPath() const { return path_; }
  [[nodiscard]] const std::string& getNarrowPath() const { return narrowPath_; }
  [[nodiscard]] bool isDurable() const { return durable_; }
  [[nodiscard]] bool fileExists() const;

  // Reads the central directory (the entries' data is read only when asked for). Throws
  // model::PackageNotFound for a missing file, opc::Exception for one that is no readable ZIP archive.
  // Reopening rereads the file.
  void openArchive();
  void closeArchive() noexcept;
  [[nodiscard]] bool isArchiveOpen() const { return rawFd_ >= 0; }
  // The entries in central-directory order; empty when no archive is open.
  [[nodiscard]] const std::vector<ZipEntry>& getEntries() const { return entries_; }
  // The decompressed bytes of an entry; the size and CRC are checked at the end, and more bytes than
  // the size are refused as they come. Throws opc::Exception naming the entry (encrypted, an unknown
  // method, no local header, data outside the file, corrupt data). The stream must not outlive
  // closeArchive(); several may be open at once.
  [[nodiscard]] std::unique_ptr<InputStream> openEntry(std::uint64_t index) const;
  // The entry's data as stored in the file (the raw deflate stream of a deflated entry), neither
  // inflated nor checked; the caller verifies sizes and CRC. Same errors and lifetime as openEntry.
  [[nodiscard]] std::unique_ptr<InputStream> openRawEntry(std::uint64_t index) const;
  // The open archive's file (read only; -1 when none is open), for reading stored bytes with pread
  // from several threads at offsets found in its directory. Owned by this package; valid until
  // closeArchive().
  [[nodiscard]] int rawDescriptor() const { return rawFd_; }
  // The open archive's central directory as stored (null when none is open); valid until closeArchive().
  [[nodiscard]] const std::shared_ptr<const CentralDirectory>& directory() const { return directory_; }

  // A new archive that replaces this package's file on commit. The open archive (if any) stays
  // readable meanwhile and is the source of copyEntry.
  [[nodiscard]] std::unique_ptr<ZipWriter> createWriter();

 private:
  friend class ZipWriter;
  [[nodiscard]] std::unique_ptr<InputStream> open(std::uint64_t index, bool raw) const;
  ustring path_;
  std::string narrowPath_;
  bool durable_;
  int rawFd_ = -1;  // the open archive's file (owned)
  std::shared_ptr<const CentralDirectory> directory_;
  std::vector<ZipEntry> entries_;
  std::deque<std::string> convertedNames_;  // names read as code page 437, in UTF-8
};

// Builds a new archive entry by entry into a temporary file that commit() puts in the package's
// place. Entries are written in the order added, a few behind the calls that add them (small ones
// are deflated meanwhile on every core), and unchanged entries copied as raw bytes after them; a
// source is opened only while its entry is written. Memory holds the directory (about 100 bytes an
// entry) and no more than a window of entries, so it does not grow with their size and barely with
// their number. Destroying an uncommitted writer discards everything and leaves the package file
// untouched. Throws opc::Exception naming the package and the entry; after a throw the writer
// cannot be used again.
class ZipWriter {
 public:
  ~ZipWriter();
  ZipWriter(const ZipWriter&) = delete;
  ZipWriter& operator=(const ZipWriter&) = delete;

  // The entry `sourceIndex` of the package's open archive, its compressed bytes copied unchanged.
  void copyEntry(std::string_view name, std::uint64_t sourceIndex, const EntryAttributes& attributes);
  // Bytes from `source`, stored or deflated as asked (data that is already compressed, or does not
  // shrink, is stored even so).
  void addEntry(const std::string& name, std::shared_ptr<const ContentSource> source, Compression compression,
                const EntryAttributes& attributes);
  // Deflate data compressed beforehand, copied as is.
  void addPrecompressedEntry(const std::string& name, PrecompressedContent content,
                             const EntryAttributes& attributes);
  // Finishes the archive in its temporary file, syncs it (durable packages), renames it over the
  // package file and syncs the folder. On failure the package file is untouched and no temporary
  // file is left behind. An archive without entries is refused.
  void commit();

 private:
  friend class ZipPhysicalPackage;
  explicit ZipWriter(ZipPhysicalPackage& package);
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace opc::zippackage
