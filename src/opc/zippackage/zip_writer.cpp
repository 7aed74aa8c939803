#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <dirent.h>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <optional>
#include <vector>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include "foundation/clock.h"
#include "opc/detail/content_sources.h"
#include "opc/detail/fd.h"
#include "opc/exception.h"
#include "opc/zippackage/extra_fields.h"
#include "opc/zippackage/parallel_deflate.h"
#include "opc/zippackage/raw_copy.h"
#include "opc/zippackage/zip_physical_package.h"
#include "opc/zippackage/zip_support.h"

namespace opc::zippackage {

namespace {

using detail::UniqueFd;

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string baseOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

mode_t currentUmask() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Umask:", 0) == 0) return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
  }
  return 022;
}

// Temporaries of this package are named ".<base>.<pid>.<token>.tmp". A writer killed between naming
// its new file and the rename leaves one behind; once its process is gone, the next write removes it.
void removeStaleTemporaries(const std::string& folder, const std::string& base) noexcept {
  DIR* dir = ::opendir(folder.c_str());
  if (dir == nullptr) return;
  const std::string prefix = "." + base + ".";
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name = entry->d_name;
    if (!name.starts_with(prefix) || !name.ends_with(".tmp")) continue;
    const std::string_view rest = name.substr(prefix.size(), name.size() - prefix.size() - 4);
    const std::size_t dot = rest.find('.');
    if (dot == std::string_view::npos || rest.find('.', dot + 1) != std::string_view::npos) continue;
    pid_t pid = 0;
    const auto [end, ec] = std::from_chars(rest.data(), rest.data() + dot, pid);
    if (ec != std::errc() || end != rest.data() + dot || pid <= 0 || pid == ::getpid()) continue;
    if (::kill(pid, 0) == 0 || errno != ESRCH) continue;  // alive, or not ours to judge
    ::unlinkat(::dirfd(dir), entry->d_name, 0);
  }
  ::closedir(dir);
}

// First failure seen inside a libzip callback, where no exception may pass.
struct Failures {
  std::string first;
  void record(const std::string& message) {
    if (first.empty()) first = message;
  }
};

zip_int64_t fail(zip_error_t* error, int code, int sysErr = 0) {
  zip_error_set(error, code, sysErr);
  return -1;
}

// The archive's file. New archives only: stat reports "no such file" so libzip starts empty, and
// writing goes to a temporary file that replaces the package on commit.
struct WriteTarget {
  std::string finalPath;
  std::string folder;
  bool durable = true;
  std::shared_ptr<Failures> failures;
  UniqueFd fd;
  std::string tempName;  // a named temporary file that exists on disk
  std::uint64_t position = 0;
  std::uint64_t length = 0;
  zip_error_t error{};

  std::string uniqueTempName() const {
    static std::atomic<unsigned> counter{0};
    return folder + "/." + baseOf(finalPath) + "." + std::to_string(::getpid()) + "." +
           std::to_string(counter++) + ".tmp";
  }

  zip_int64_t begin() {
    rollback();
    fd = UniqueFd(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666));
    if (!fd) {
      if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
        failures->record(detail::osError("cannot create a temporary file in", folder, errno));
        return fail(&error, ZIP_ER_TMPOPEN, errno);
      }
      std::string name = folder + "/." + baseOf(finalPath) + "." + std::to_string(::getpid()) + ".XXXXXX.tmp";
      fd = UniqueFd(::mkostemps(name.data(), 4, O_CLOEXEC));
      if (!fd) {
        failures->record(detail::osError("cannot create a temporary file in", folder, errno));
        return fail(&error, ZIP_ER_TMPOPEN, errno);
      }
      tempName = name;
      ::fchmod(fd.get(), 0666 & ~currentUmask());
    }
    position = length = 0;
    behind.emplace(fd.get());
    pendingHeader.reset();
    buffered.clear();
    buffered.reserve(kBufferSize);
    return 0;
  }

  zip_int64_t write(const void* data, zip_uint64_t size) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    try {
      put(position, bytes, static_cast<std::size_t>(size));
      markUtf8Name(bytes, size);
    } catch (const Exception& e) {
      failures->record(std::string("writing the new package: ") + e.what());
      return fail(&error, ZIP_ER_WRITE, errno);
    }
    position += size;
    length = std::max(length, position);
    return static_cast<zip_int64_t>(size);
  }

  // libzip writes each header in three or four small pieces and goes back to rewrite the local
  // header after the data; gathering writes here turns those into one system call per megabyte.
  // `buffered` holds the bytes of [bufferStart, bufferStart + buffered.size()), not yet on disk.
  static constexpr std::size_t kBufferSize = 1u << 20;
  std::vector<std::uint8_t> buffered;
  std::uint64_t bufferStart = 0;

  void put(std::uint64_t at, const std::uint8_t* bytes, std::size_t size) {
    if (buffered.empty()) bufferStart = at;
    if (at >= bufferStart && at <= bufferStart + buffered.size() && at + size <= bufferStart + kBufferSize) {
      const std::size_t offset = static_cast<std::size_t>(at - bufferStart);
      if (offset + size > buffered.size()) buffered.resize(offset + size);
      std::memcpy(buffered.data() + offset, bytes, size);
      return;
    }
    flush();
    if (size >= kBufferSize / 2) {
      detail::pwriteAll(fd.get(), bytes, size, at, folder);
      behind->written(at + size);
      return;
    }
    bufferStart = at;
    buffered.assign(bytes, bytes + size);
  }

  void flush() {
    if (buffered.empty()) return;
    detail::pwriteAll(fd.get(), buffered.data(), buffered.size(), bufferStart, folder);
    behind->written(bufferStart + buffered.size());
    buffered.clear();
  }
  std::optional<detail::WriteBehind> behind;  // made with the file

  // libzip sets the UTF-8 name flag (bit 11) only on names with non-ASCII bytes; every name we write
  // is UTF-8, so the flag goes on every local and central header. libzip writes each header's fixed
  // part in one call and the name in the next; the flag is set once both are seen, so that entry data
  // that happens to look like a header is never touched (its next write is not a name of that length).
  struct PendingHeader {
    std::uint64_t flagsAt = 0;
    std::uint16_t flags = 0;
    std::uint16_t nameLength = 0;
  };
  std::optional<PendingHeader> pendingHeader;

  void markUtf8Name(const std::uint8_t* bytes, zip_uint64_t size) {
    const auto get16 = [&](std::size_t at) { return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8)); };
    if (pendingHeader) {
      const PendingHeader header = *pendingHeader;
      pendingHeader.reset();
      if (size == header.nameLength && std::memchr(bytes, 0, size) == nullptr) {
        const std::uint16_t flags = header.flags | 0x0800;
        const std::uint8_t patch[2] = {static_cast<std::uint8_t>(flags), static_cast<std::uint8_t>(flags >> 8)};
        put(header.flagsAt, patch, sizeof patch);
        return;
      }
    }
    constexpr std::uint8_t kLocal[4] = {'P', 'K', 3, 4};
    constexpr std::uint8_t kCentral[4] = {'P', 'K', 1, 2};
    if (size == 30 && std::memcmp(bytes, kLocal, 4) == 0) {
      pendingHeader = PendingHeader{position + 6, get16(6), get16(26)};
    } else if (size == 46 && std::memcmp(bytes, kCentral, 4) == 0) {
      pendingHeader = PendingHeader{position + 8, get16(8), get16(28)};
    }
  }

  // Runs on the finished archive before it is synced and renamed; may rewrite it.
  std::function<void(int fd)> finish;

  zip_int64_t commit() {
    try {
      flush();
      behind.reset();
      if (finish) finish(fd.get());
    } catch (const Exception& e) {
      failures->record(std::string("writing the new package: ") + e.what());
      return fail(&error, ZIP_ER_WRITE, errno);
    }
    struct stat old {};
    if (::stat(finalPath.c_str(), &old) == 0) ::fchmod(fd.get(), old.st_mode & 07777);
    if (durable && ::fsync(fd.get()) != 0) {
      failures->record(detail::osError("cannot sync the new package in", folder, errno));
      return fail(&error, ZIP_ER_WRITE, errno);
    }
    if (tempName.empty()) {
      const std::string procPath = "/proc/self/fd/" + std::to_string(fd.get());
      for (int attempt = 0;; ++attempt) {
        const std::string name = uniqueTempName();
        if (::linkat(AT_FDCWD, procPath.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
          tempName = name;
          break;
        }
        if (errno != EEXIST || attempt > 100) {
          failures->record(detail::osError("cannot name the new package in", folder, errno));
          return fail(&error, ZIP_ER_TMPOPEN, errno);
        }
      }
    }
    if (::rename(tempName.c_str(), finalPath.c_str()) != 0) {
      const int err = errno;
      ::unlink(tempName.c_str());
      tempName.clear();
      failures->record(detail::osError("cannot replace", finalPath, err));
      return fail(&error, ZIP_ER_RENAME, err);
    }
    tempName.clear();
    removeStaleTemporaries(folder, baseOf(finalPath));
    const std::string closeError = fd.close();
    if (!closeError.empty()) {
      failures->record("closing the new package '" + finalPath + "': " + closeError);
      return fail(&error, ZIP_ER_WRITE, 0);
    }
    if (durable) {
      UniqueFd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      if (!dir || ::fsync(dir.get()) != 0) {
        failures->record(detail::osError("cannot sync the folder", folder, errno));
        return fail(&error, ZIP_ER_WRITE, errno);
      }
    }
    return 0;
  }

  void rollback() noexcept {
    buffered = {};
    behind.reset();  // its thread uses the descriptor
    fd = UniqueFd();
    if (!tempName.empty()) ::unlink(tempName.c_str());
    tempName.clear();
  }
};

zip_int64_t targetCallback(void* state, void* data, zip_uint64_t len, zip_source_cmd_t command) {
  auto* t = static_cast<WriteTarget*>(state);
  switch (command) {
    case ZIP_SOURCE_SUPPORTS:
      return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                            ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL,
                                            ZIP_SOURCE_BEGIN_WRITE, ZIP_SOURCE_COMMIT_WRITE,
                                            ZIP_SOURCE_ROLLBACK_WRITE, ZIP_SOURCE_WRITE, ZIP_SOURCE_SEEK_WRITE,
                                            ZIP_SOURCE_TELL_WRITE, ZIP_SOURCE_REMOVE, -1);
    case ZIP_SOURCE_STAT:  // how libzip learns that there is no archive to read yet
      return fail(&t->error, ZIP_ER_READ, ENOENT);
    case ZIP_SOURCE_BEGIN_WRITE:
      return t->begin();
    case ZIP_SOURCE_WRITE:
      return t->write(data, len);
    case ZIP_SOURCE_SEEK_WRITE: {
      const zip_int64_t offset = zip_source_seek_compute_offset(t->position, t->length, data, len, &t->error);
      if (offset < 0) return -1;
      t->position = static_cast<std::uint64_t>(offset);
      return 0;
    }
    case ZIP_SOURCE_TELL_WRITE:
      return static_cast<zip_int64_t>(t->position);
    case ZIP_SOURCE_COMMIT_WRITE:
      return t->commit();
    case ZIP_SOURCE_ROLLBACK_WRITE:
      t->rollback();
      return 0;
    case ZIP_SOURCE_ERROR:
      return zip_error_to_data(&t->error, data, len);
    case ZIP_SOURCE_FREE:
      t->rollback();
      delete t;
      return 0;
    case ZIP_SOURCE_REMOVE:  // an archive without entries; never wanted
    default:
      return fail(&t->error, ZIP_ER_OPNOTSUPP);
  }
}

// The bytes of one entry, opened only while libzip copies them. An entry deflated by the pipeline
// gets its result at the first stat (libzip stats each entry just before writing it, in order) and
// lets go of the bytes when libzip closes it.
struct EntrySource {
  std::string name;
  std::shared_ptr<const ContentSource> content;
  std::optional<PrecompressedContent> precompressed;
  std::shared_ptr<Failures> failures;
  std::unique_ptr<InputStream> stream;
  zip_error_t error{};
  DeflatePipeline* pipeline = nullptr;
  std::size_t ticket = 0;
  std::string pieceSpoolFolder;  // non-empty: deflate in pieces at the first stat, spooled here

  zip_int64_t deflatePieces() {
    struct Sink : OutputSink {
      detail::SpoolContent& spool;
      explicit Sink(detail::SpoolContent& s) : spool(s) {}
      void append(const std::uint8_t* data, std::size_t size) override { spool.append(data, size); }
    };
    try {
      auto spool = std::make_shared<detail::SpoolContent>(pieceSpoolFolder);
      Sink sink(*spool);
      const PieceStream result = deflateInPieces(*content, sink, deflateThreads());
      pieceSpoolFolder.clear();
      content = spool;
      precompressed = PrecompressedContent{spool, result.compressedSize, result.size, result.crc};
      return 0;
    } catch (const std::exception& e) {
      failures->record("entry '" + name + "': " + e.what());
      return fail(&error, ZIP_ER_READ);
    }
  }

  zip_int64_t takeDeflated() {
    DeflatedEntry result = pipeline->take(ticket);
    pipeline = nullptr;
    if (!result.error.empty()) {
      failures->record("entry '" + name + "': " + result.error);
      return fail(&error, ZIP_ER_READ);
    }
    const std::uint64_t compressedSize = result.compressed.size();
    content = std::make_shared<detail::MemoryContentSource>(std::move(result.compressed));
    precompressed = PrecompressedContent{content, compressedSize, result.size, result.crc};
    return 0;
  }

  void close() {
    stream.reset();
    if (precompressed) {
      precompressed->compressed.reset();
      content.reset();
    }
  }

  zip_int64_t stat(void* data, zip_uint64_t len) {
    auto* st = ZIP_SOURCE_GET_ARGS(zip_stat_t, data, len, &error);
    if (st == nullptr) return -1;
    zip_stat_init(st);
    if (pipeline != nullptr && takeDeflated() != 0) return -1;
    if (!pieceSpoolFolder.empty() && deflatePieces() != 0) return -1;
    if (precompressed) {
      st->size = precompressed->uncompressedSize;
      st->comp_size = precompressed->compressedSize;
      st->comp_method = ZIP_CM_DEFLATE;
      st->crc = precompressed->crc;
      st->valid |= ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD | ZIP_STAT_CRC;
    } else {
      try {
        if (const auto size = content->size()) {
          st->size = *size;
          st->valid |= ZIP_STAT_SIZE;
        }
      } catch (const std::exception& e) {
        failures->record("entry '" + name + "': " + e.what());
        return fail(&error, ZIP_ER_READ);
      }
    }
    return sizeof(zip_stat_t);
  }

  zip_int64_t open() {
    try {
      stream = content->openStream();
      return 0;
    } catch (const std::exception& e) {
      failures->record("entry '" + name + "': " + e.what());
      return fail(&error, ZIP_ER_OPEN);
    }
  }

  zip_int64_t read(void* data, zip_uint64_t len) {
    try {
      return static_cast<zip_int64_t>(stream->read(static_cast<std::uint8_t*>(data), static_cast<std::size_t>(len)));
    } catch (const std::exception& e) {
      failures->record("entry '" + name + "': " + e.what());
      return fail(&error, ZIP_ER_READ);
    }
  }
};

zip_int64_t entryCallback(void* state, void* data, zip_uint64_t len, zip_source_cmd_t command) {
  auto* s = static_cast<EntrySource*>(state);
  switch (command) {
    case ZIP_SOURCE_SUPPORTS:
      return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                                            ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
    case ZIP_SOURCE_STAT:
      return s->stat(data, len);
    case ZIP_SOURCE_OPEN:
      return s->open();
    case ZIP_SOURCE_READ:
      return s->read(data, len);
    case ZIP_SOURCE_CLOSE:
      s->close();
      return 0;
    case ZIP_SOURCE_ERROR:
      return zip_error_to_data(&s->error, data, len);
    case ZIP_SOURCE_FREE:
      delete s;
      return 0;
    default:
      return fail(&s->error, ZIP_ER_OPNOTSUPP);
  }
}

}  // namespace

struct ZipWriter::Impl {
  // A deflated entry whose compression commit() chooses: stored, deflated by the pipeline, or left
  // to libzip.
  struct Deferred {
    EntrySource* state;  // owned by libzip's source, alive until the archive is closed or discarded
    zip_uint64_t index;
  };

  ZipPhysicalPackage& package;
  std::shared_ptr<Failures> failures = std::make_shared<Failures>();
  std::vector<Deferred> deferred;
  // Declared before the archive so that the workers outlive every source that refers to them.
  std::unique_ptr<DeflatePipeline> pipeline;
  ZipArchivePtr archive;
  WriteTarget* target = nullptr;  // owned by the archive's source
  // Unchanged entries copied as stored bytes after libzip has written the rest; empty when the
  // old archive's directory could not be read that way (libzip then copies every entry).
  std::optional<RawCopier> rawCopies;
  bool rawCopiesTried = false;
  bool used = false;
  std::uint64_t entries = 0;

  explicit Impl(ZipPhysicalPackage& p) : package(p) {}

  [[noreturn]] void raise(const std::string& doing) {
    std::string text = failures->first.empty() ? std::string(zip_strerror(archive.get())) : failures->first;
    throw Exception("cannot write package '" + package.getNarrowPath() + "': " + doing + ": " + text);
  }

  zip_uint64_t add(const std::string& name, zip_source_t* source) {
    if (source == nullptr) raise("entry '" + name + "'");
    const zip_int64_t index = zip_file_add(archive.get(), name.c_str(), source, ZIP_FL_ENC_UTF_8);
    if (index < 0) {
      zip_source_free(source);
      raise("entry '" + name + "'");
    }
    ++entries;
    return static_cast<zip_uint64_t>(index);
  }

  zip_source_t* functionSource(EntrySource* state) {
    zip_source_t* source = zip_source_function(archive.get(), entryCallback, state);
    if (source == nullptr) delete state;
    return source;
  }

  void apply(const std::string& name, zip_uint64_t index, const EntryAttributes& attributes) {
    if (attributes.lastModified) {
      const FileTime time = *attributes.lastModified;
      if (zip_file_set_mtime(archive.get(), index, extra::clampToDosRange(time), 0) != 0) raise("entry '" + name + "'");
      // The local header gets the extended timestamp only (Info-ZIP's tools restore times from it);
      // the central directory the shortest field that holds the time exactly: 9 bytes for whole
      // seconds from 1901 to 2038, else the 36-byte NTFS field. This keeps a tree's headers no
      // longer than Info-ZIP's own.
      const auto ut = extra::encodeExtendedTimestamp(time);
      if (ut && zip_file_extra_field_set(archive.get(), index, extra::kExtendedTimestampId, ZIP_EXTRA_FIELD_NEW,
                                         ut->data(), static_cast<zip_uint16_t>(ut->size()), ZIP_FL_LOCAL) != 0) {
        raise("entry '" + name + "'");
      }
      if (ut && time.nanoseconds == 0) {
        if (zip_file_extra_field_set(archive.get(), index, extra::kExtendedTimestampId, ZIP_EXTRA_FIELD_NEW,
                                     ut->data(), static_cast<zip_uint16_t>(ut->size()), ZIP_FL_CENTRAL) != 0) {
          raise("entry '" + name + "'");
        }
      } else if (const auto ntfs = extra::encodeNtfs(time)) {
        if (zip_file_extra_field_set(archive.get(), index, extra::kNtfsId, ZIP_EXTRA_FIELD_NEW, ntfs->data(),
                                     static_cast<zip_uint16_t>(ntfs->size()), ZIP_FL_CENTRAL) != 0) {
          raise("entry '" + name + "'");
        }
      }
    } else {
      // Generated parts carry the system's clock, not libzip's, so SOURCE_DATE_EPOCH reaches them.
      const FileTime now{foundation::clock::now(), 0};
      if (zip_file_set_mtime(archive.get(), index, extra::clampToDosRange(now), 0) != 0) raise("entry '" + name + "'");
    }
    if (attributes.unixMode) {
      const zip_uint32_t external = (static_cast<zip_uint32_t>(S_IFREG) | (*attributes.unixMode & 07777)) << 16;
      if (zip_file_set_external_attributes(archive.get(), index, 0, ZIP_OPSYS_UNIX, external) != 0) {
        raise("entry '" + name + "'");
      }
    }
  }

  void setCompression(const std::string& name, zip_uint64_t index, zip_int32_t method, zip_uint32_t level) {
    if (zip_set_file_compression(archive.get(), index, method, level) != 0) raise("entry '" + name + "'");
  }

  // Already-compressed formats and data that does not shrink are stored; entries small enough to
  // hold in memory go to the pipeline; larger ones are deflated in pieces when libzip reaches them;
  // those of unknown size libzip deflates itself.
  void planCompression() {
    pipeline = std::make_unique<DeflatePipeline>(deflateThreads());
    pipeline->reserve(deferred.size());
    for (const Deferred& d : deferred) {
      EntrySource& s = *d.state;
      std::optional<std::uint64_t> size;
      try {
        size = s.content->size();
        if (isCompressedFormat(s.name) || (size && *size > kWholeEntryLimit && !worthDeflating(*s.content))) {
          setCompression(s.name, d.index, ZIP_CM_STORE, 0);
          continue;
        }
      } catch (const Exception& e) {
        failures->record("entry '" + s.name + "': " + e.what());
        raise("entry '" + s.name + "'");
      }
      if (size && *size <= kWholeEntryLimit) {
        s.ticket = pipeline->add(s.content);
        s.pipeline = pipeline.get();
        setCompression(s.name, d.index, ZIP_CM_DEFAULT, 0);
      } else if (size) {
        s.pieceSpoolFolder = folderOf(package.getNarrowPath());
        setCompression(s.name, d.index, ZIP_CM_DEFAULT, 0);
      }
    }
    deferred.clear();
    pipeline->start();
  }

  // True when the entry was queued for copying as raw bytes.
  bool queueRawCopy(const std::string& name, std::uint64_t sourceIndex, const EntryAttributes& attributes) {
    const ZipEntry& entry = package.entries_[sourceIndex];
    if (entry.attributes.lastModified != attributes.lastModified || entry.attributes.unixMode != attributes.unixMode) {
      return false;
    }
    if (!rawCopiesTried) {
      rawCopiesTried = true;
      if (package.directory_) rawCopies.emplace(package.rawFd_, package.getNarrowPath(), package.directory_);
    }
    if (!rawCopies || !rawCopies->canCopy(static_cast<std::size_t>(sourceIndex), name)) return false;
    rawCopies->add(static_cast<std::size_t>(sourceIndex));
    return true;
  }

  void addLibzipCopy(const std::string& name, std::uint64_t sourceIndex, const EntryAttributes& attributes) {
    zip_source_t* source = zip_source_zip(archive.get(), package.libzipArchive(), sourceIndex, ZIP_FL_COMPRESSED, 0, 0);
    const zip_uint64_t index = add(name, source);
    // Stored entries stay stored; left at the default method libzip would deflate them.
    if (package.entries_[sourceIndex].compressionMethod == ZIP_CM_STORE &&
        zip_set_file_compression(archive.get(), index, ZIP_CM_STORE, 0) != 0) {
      raise("entry '" + name + "'");
    }
    apply(name, index, attributes);
  }

  void requireUsable() const {
    if (used) throw Exception("package writer for '" + package.getNarrowPath() + "' was already committed or failed");
  }
};

ZipWriter::ZipWriter(ZipPhysicalPackage& package) : impl_(std::make_unique<Impl>(package)) {
  auto* target = new WriteTarget();
  // Through a symbolic link the file it names is replaced, and the link stays.
  target->finalPath = package.getNarrowPath();
  if (char* resolved = ::realpath(target->finalPath.c_str(), nullptr)) {
    target->finalPath = resolved;
    std::free(resolved);
  }
  target->folder = folderOf(target->finalPath);
  target->durable = package.isDurable();
  target->failures = impl_->failures;
  impl_->target = target;
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* source = zip_source_function_create(targetCallback, target, &error);
  if (source == nullptr) {
    delete target;
    const std::string text = zipErrorText(&error);
    zip_error_fini(&error);
    throw Exception("cannot write package '" + package.getNarrowPath() + "': " + text);
  }
  zip_t* archive = zip_open_from_source(source, ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (archive == nullptr) {
    zip_source_free(source);
    const std::string text = zipErrorText(&error);
    zip_error_fini(&error);
    throw Exception("cannot write package '" + package.getNarrowPath() + "': " + text);
  }
  zip_error_fini(&error);
  impl_->archive.reset(archive);
}

ZipWriter::~ZipWriter() = default;

void ZipWriter::copyEntry(const std::string& name, std::uint64_t sourceIndex, const EntryAttributes& attributes) {
  impl_->requireUsable();
  auto& package = impl_->package;
  if (!package.isArchiveOpen() || sourceIndex >= package.entries_.size()) {
    throw Exception("cannot copy entry " + std::to_string(sourceIndex) + " of '" + package.getNarrowPath() +
                    "': no such entry in the open archive");
  }
  if (!impl_->queueRawCopy(name, sourceIndex, attributes)) impl_->addLibzipCopy(name, sourceIndex, attributes);
}

void ZipWriter::addEntry(const std::string& name, std::shared_ptr<const ContentSource> source,
                         Compression compression, const EntryAttributes& attributes) {
  impl_->requireUsable();
  auto* state = new EntrySource{name, std::move(source), std::nullopt, impl_->failures, nullptr, {}, nullptr, 0, {}};
  const zip_uint64_t index = impl_->add(name, impl_->functionSource(state));
  const bool stored = compression == Compression::Stored;
  impl_->setCompression(name, index, stored ? ZIP_CM_STORE : ZIP_CM_DEFLATE, stored ? 0 : kDeflateLevel);
  if (!stored) impl_->deferred.push_back({state, index});
  impl_->apply(name, index, attributes);
}

void ZipWriter::addPrecompressedEntry(const std::string& name, PrecompressedContent content,
                                      const EntryAttributes& attributes) {
  impl_->requireUsable();
  auto compressed = content.compressed;
  auto* state = new EntrySource{name, std::move(compressed), std::move(content), impl_->failures, nullptr, {}, nullptr, 0, {}};
  const zip_uint64_t index = impl_->add(name, impl_->functionSource(state));
  impl_->apply(name, index, attributes);
}

void ZipWriter::commit() {
  impl_->requireUsable();
  impl_->used = true;
  if (impl_->rawCopies && !impl_->rawCopies->empty()) {
    // libzip writes no empty archive; it gets one of the copies then.
    if (impl_->entries == 0) {
      const std::size_t first = impl_->rawCopies->takeFirst();
      const ZipEntry& entry = impl_->package.entries_[first];
      impl_->addLibzipCopy(entry.name, first, entry.attributes);
    }
    if (!impl_->rawCopies->empty()) {
      const RawCopier* copies = &*impl_->rawCopies;
      const std::string path = impl_->target->folder;
      impl_->target->finish = [copies, path](int fd) { copies->appendTo(fd, path); };
    }
  }
  if (impl_->entries == 0) {
    impl_->archive.reset();
    throw Exception("cannot write package '" + impl_->package.getNarrowPath() + "': it has no entries");
  }
  try {
    impl_->planCompression();
  } catch (...) {
    impl_->archive.reset();
    throw;
  }
  if (zip_close(impl_->archive.get()) != 0) {
    std::string text = impl_->failures->first.empty() ? std::string(zip_strerror(impl_->archive.get()))
                                                       : impl_->failures->first;
    impl_->archive.reset();  // zip_discard: the target rolls back and removes its temporary file
    throw Exception("cannot write package '" + impl_->package.getNarrowPath() + "': " + text);
  }
  (void)impl_->archive.release();  // zip_close freed it
}

std::string zipErrorText(int code) {
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  std::string text = zip_error_strerror(&error);
  zip_error_fini(&error);
  return text;
}

std::string zipErrorText(zip_error_t* error) {
  return zip_error_strerror(error);
}

}  // namespace opc::zippackage
