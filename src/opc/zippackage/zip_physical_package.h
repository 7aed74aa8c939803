#pragma once
// The ZIP container of a package: its entries read by directory index (one reader for the model,
// extraction and listing), and a new archive written entry by entry. The only public header of
// opc::zippackage; ZIP records, methods and inflate stay inside it.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/ustring.h"
#include "opc/compression.h"
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

// One entry as the central directory records it, ZIP64 fields resolved.
// Numbers the reader bounds (a million entries, 256 MiB of directory) take 32 bits: opening holds all.
struct ZipEntry {
  std::uint32_t index = 0;
  std::uint32_t crc = 0;
  // UTF-8 (names without the UTF-8 flag that are not UTF-8 are read as code page 437): a view into
  // the open archive's directory, valid until closeArchive().
  std::string_view name;
  std::uint64_t size = 0;
  std::uint64_t compressedSize = 0;
  std::uint64_t localHeaderOffset = 0;
  std::uint32_t recordOffset = 0;  // where its directory record starts in the directory
  std::uint32_t recordLength = 0;  // fixed part, name, extra field and comment
  std::uint16_t compressionMethod = 0;     // the method's number as stored, for messages
  std::uint16_t flags = 0;
  std::optional<Compression> compression;  // none: a method this reader cannot read
  bool encrypted = false;
  EntryAttributes attributes;
};
static_assert(sizeof(ZipEntry) <= 96);

class ZipWriter;

// The package file at one path. Reading: openArchive() opens the existing file read only and lists
// its entries; openEntry() and readEntry() give one entry's bytes. Writing: createWriter() starts a
// new archive that replaces the file when committed. Not copyable; the reading members that are
// const may be called from several threads at once.
//
// Every read of an entry's bytes is checked: an encrypted entry, an unknown method, sizes that no
// data of its method can have, a local header missing where the directory points, data running into
// the directory, more or fewer bytes than the size, a corrupt deflate stream and a CRC mismatch are
// each refused with opc::Exception naming the entry, never handed on as bytes.
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

  [[nodiscard]] const std::string& getNarrowPath() const { return narrowPath_; }

  // Reads the central directory (the entries' data is read only when asked for). Throws
  // model::PackageNotFound for a missing file, opc::Exception for one that is no readable ZIP archive.
  // Reopening rereads the file.
  void openArchive();
  void closeArchive() noexcept;
  [[nodiscard]] bool isArchiveOpen() const { return fd_ >= 0; }
  // The entries in central-directory order; empty when no archive is open.
  [[nodiscard]] const std::vector<ZipEntry>& getEntries() const;

  // Why entry `index` cannot be read as its record says (encrypted, an unknown method, or sizes no
  // data of its method can have: a stored entry whose sizes differ, a deflated one declaring more
  // than deflate can expand its compressed bytes to), or "" when it can be tried. Needs no read.
  [[nodiscard]] std::string entryDefect(std::uint64_t index) const;
  // The decompressed bytes of an entry, checked as they come and at the end (see above). The stream
  // must not outlive closeArchive(); several may be open at once.
  [[nodiscard]] std::unique_ptr<InputStream> openEntry(std::uint64_t index) const;
  // The entry's data as stored (the raw deflate stream of a deflated entry), neither inflated nor
  // checked; the caller verifies sizes and CRC. Same errors and lifetime as openEntry.
  [[nodiscard]] std::unique_ptr<InputStream> openRawEntry(std::uint64_t index) const;
  // The whole entry into `out` (resized to its size) with the checks of openEntry, read with one
  // pread where it can be: for entries the caller is ready to hold in memory. `scratch` holds the
  // stored bytes; a thread that reads many entries reuses its own pair of buffers.
  void readEntry(std::uint64_t index, std::vector<std::uint8_t>& out, std::vector<std::uint8_t>& scratch) const;

  // A new archive that replaces this package's file on commit. The open archive (if any) stays
  // readable meanwhile and is the source of copyEntry.
  [[nodiscard]] std::unique_ptr<ZipWriter> createWriter();

 private:
  friend class ZipWriter;
  struct Located;
  // Checks entry `index` and finds its data from its local header; with `whole`, reads the header and
  // the data into it.
  [[nodiscard]] Located locate(std::uint64_t index, bool raw, std::vector<std::uint8_t>* whole) const;
  ustring path_;
  std::string narrowPath_;
  bool durable_;
  int fd_ = -1;  // the open archive's file (owned)
  std::shared_ptr<const CentralDirectory> directory_;
};

// Builds a new archive entry by entry into a temporary file that commit() puts in the package's
// place. Entries are written in the order added, behind the calls that add them: workers read (and
// deflate) entries ahead of the writing, up to a window of a few megabytes, large entries are
// deflated in pieces on every core, and unchanged entries are copied as raw bytes after the rest. A
// source is opened only while its entry is read. Memory holds the directory (a quarter megabyte, the
// rest spooled to a file) and the window, so it does not grow with the entries' size and barely with
// their number. Destroying an uncommitted writer discards everything and leaves the package file
// untouched. Throws opc::Exception naming the package and the entry; after a throw the writer cannot
// be used again.
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
