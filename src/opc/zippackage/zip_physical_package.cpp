#include "opc/zippackage/zip_physical_package.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/model/part_name.h"
#include "opc/zippackage/central_directory.h"
#include "opc/zippackage/extra_fields.h"
#include "opc/zippackage/zip_support.h"

namespace opc::zippackage {

namespace {

// More items than any real package holds. Each costs the model far more memory than its central
// directory record costs the file, so a file of millions of tiny entries is refused up front.
constexpr zip_int64_t kMaxEntries = 1'000'000;

class EntryStream : public InputStream {
 public:
  EntryStream(zip_file_t* file, std::string description) : file_(file), description_(std::move(description)) {}
  ~EntryStream() override { zip_fclose(file_); }
  EntryStream(const EntryStream&) = delete;
  EntryStream& operator=(const EntryStream&) = delete;

  [[nodiscard]] std::size_t read(std::uint8_t* buffer, std::size_t size) override {
    const zip_int64_t n = zip_fread(file_, buffer, size);
    if (n < 0) throw Exception("cannot read " + description_ + ": " + zip_file_strerror(file_));
    return static_cast<std::size_t>(n);
  }

 private:
  zip_file_t* file_;
  std::string description_;
};

EntryAttributes readAttributes(zip_t* archive, zip_uint64_t index, const zip_stat_t& st) {
  EntryAttributes attributes;
  zip_uint16_t length = 0;
  if (const zip_uint8_t* data = zip_file_extra_field_get_by_id(archive, index, extra::kNtfsId, 0, &length, ZIP_FL_CENTRAL)) {
    attributes.lastModified = extra::decodeNtfs(data, length);
  }
  if (!attributes.lastModified) {
    if (const zip_uint8_t* data =
            zip_file_extra_field_get_by_id(archive, index, extra::kExtendedTimestampId, 0, &length, ZIP_FL_CENTRAL)) {
      attributes.lastModified = extra::decodeExtendedTimestamp(data, length);
    }
  }
  if (!attributes.lastModified && (st.valid & ZIP_STAT_MTIME) != 0) {
    attributes.lastModified = FileTime{static_cast<std::int64_t>(st.mtime), 0};
  }
  zip_uint8_t opsys = 0;
  zip_uint32_t external = 0;
  if (zip_file_get_external_attributes(archive, index, 0, &opsys, &external) == 0 && opsys == ZIP_OPSYS_UNIX) {
    const std::uint32_t mode = external >> 16;
    if (mode != 0) attributes.unixMode = mode & 07777;
  }
  return attributes;
}

}  // namespace

ZipPhysicalPackage::ZipPhysicalPackage(const ustring& path, bool durable)
    : path_(path), narrowPath_(detail::toUtf8(path, "package path")), durable_(durable) {
  if (path_.empty()) throw Exception("empty package path");
}

ZipPhysicalPackage::~ZipPhysicalPackage() {
  closeArchive();
}

bool ZipPhysicalPackage::fileExists() const {
  struct stat st {};
  return ::stat(narrowPath_.c_str(), &st) == 0;
}

void ZipPhysicalPackage::openArchive() {
  closeArchive();
  // One descriptor pins one file: a writer that renames a new package over this path between our
  // size check and our reads must not hand us the old size and the new bytes.
  detail::UniqueFd fd(openPackageFile(path_, narrowPath_));
  detail::UniqueFd rawFd(::fcntl(fd.get(), F_DUPFD_CLOEXEC, 0));
  if (!rawFd) throw Exception(detail::osError("cannot open package", narrowPath_, errno));
  FILE* file = ::fdopen(fd.get(), "rb");
  if (file == nullptr) throw Exception(detail::osError("cannot open package", narrowPath_, errno));
  fd.release();
  zip_error_t error;
  zip_error_init(&error);
  ZipSourcePtr source(zip_source_filep_create(file, 0, -1, &error));
  if (!source) {
    ::fclose(file);
    const std::string text = zipErrorText(&error);
    zip_error_fini(&error);
    throw Exception("cannot open package '" + narrowPath_ + "': " + text);
  }
  zip_t* archive = zip_open_from_source(source.get(), ZIP_RDONLY, &error);
  if (archive == nullptr) {
    const std::string text = zipErrorText(&error);
    zip_error_fini(&error);
    throw Exception("cannot open package '" + narrowPath_ + "': " + text);
  }
  source.release();  // the archive owns it now
  zip_error_fini(&error);
  ZipArchivePtr owner(archive);
  const zip_int64_t count = zip_get_num_entries(archive, 0);
  if (count > kMaxEntries) {
    throw Exception("cannot open package '" + narrowPath_ + "': it has " + std::to_string(count) +
                    " items, more than the " + std::to_string(kMaxEntries) + " a package may hold");
  }
  std::vector<ZipEntry> entries;
  entries.reserve(static_cast<std::size_t>(count));
  for (zip_int64_t i = 0; i < count; ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    zip_stat_t stat;
    zip_stat_init(&stat);
    if (zip_stat_index(archive, index, 0, &stat) != 0 || (stat.valid & ZIP_STAT_NAME) == 0) {
      throw Exception("package '" + narrowPath_ + "': entry " + std::to_string(i) +
                      " cannot be read: " + zip_strerror(archive));
    }
    ZipEntry entry;
    entry.index = index;
    entry.name = stat.name;
    entry.size = stat.size;
    entry.compressedSize = stat.comp_size;
    entry.compressionMethod = stat.comp_method;
    entry.crc = stat.crc;
    entry.encrypted = (stat.valid & ZIP_STAT_ENCRYPTION_METHOD) != 0 && stat.encryption_method != ZIP_EM_NONE;
    entry.attributes = readAttributes(archive, index, stat);
    entries.push_back(std::move(entry));
  }
  archive_ = owner.release();
  rawFd_ = rawFd.release();
  entries_ = std::move(entries);
}

void ZipPhysicalPackage::closeArchive() noexcept {
  if (archive_ != nullptr) zip_discard(archive_);
  archive_ = nullptr;
  if (rawFd_ >= 0) ::close(rawFd_);
  rawFd_ = -1;
  entries_.clear();
}

std::unique_ptr<InputStream> ZipPhysicalPackage::openEntry(std::uint64_t index) const {
  return open(index, 0);
}

std::unique_ptr<InputStream> ZipPhysicalPackage::openRawEntry(std::uint64_t index) const {
  return open(index, ZIP_FL_COMPRESSED);
}

std::unique_ptr<InputStream> ZipPhysicalPackage::open(std::uint64_t index, unsigned flags) const {
  if (archive_ == nullptr) throw Exception("package '" + narrowPath_ + "' is not open");
  const std::string description = "entry " + std::to_string(index) +
                                  (index < entries_.size() ? " '" + entries_[index].name + "'" : std::string()) +
                                  " of '" + narrowPath_ + "'";
  zip_file_t* file = zip_fopen_index(archive_, index, flags);
  if (file == nullptr) throw Exception("cannot open " + description + ": " + zip_strerror(archive_));
  return std::make_unique<EntryStream>(file, description);
}

std::unique_ptr<ZipWriter> ZipPhysicalPackage::createWriter() {
  return std::unique_ptr<ZipWriter>(new ZipWriter(*this));
}

}  // namespace opc::zippackage
