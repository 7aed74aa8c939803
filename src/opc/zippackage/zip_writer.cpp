#include <dirent.h>
#include <fcntl.h>
#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <optional>
#include <vector>

#include "foundation/clock.h"
#include "opc/detail/content_sources.h"
#include "opc/detail/fd.h"
#include "opc/detail/work_queue.h"
#include "opc/exception.h"
#include "opc/zippackage/parallel_deflate.h"
#include "opc/zippackage/raw_copy.h"
#include "opc/zippackage/zip_format.h"
#include "opc/zippackage/zip_physical_package.h"

namespace opc::zippackage {

namespace {

using detail::UniqueFd;

// Deflated entries of at least this size get a ZIP64 field before their compressed size is known:
// deflate never grows data by anywhere near the rest of 4 GiB.
constexpr std::uint64_t kZip64Guess = 0xF0000000;
// Bytes of entries handed to the workers and not yet written: how far they read ahead of the
// writing, so that both cores stay busy while it streams a large entry.
constexpr std::uint64_t kReadAhead = 2u << 20;
// Entries added and not yet written; each holds its name and source until then.
constexpr std::size_t kAhead = 512;
// A worker lets go of buffers grown past this by a large entry: most entries are small.
constexpr std::size_t kKeptScratch = 256u << 10;

std::string baseOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
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

// The new archive's file: a temporary in the package's folder that replaces the package on commit.
// Small writes are gathered into one system call per megabyte; a header may be rewritten after its
// data, in the buffer while it is still there, else in the file.
class Output {
 public:
  Output(std::string finalPath, bool durable) : finalPath_(std::move(finalPath)), durable_(durable) {
    folder_ = detail::folderOf(finalPath_);
    const std::string pattern = "." + baseOf(finalPath_) + "." + std::to_string(::getpid()) + ".XXXXXX.tmp";
    fd_ = detail::createTemporaryFile(folder_, 0666, pattern, 4, &tempName_);
    behind_.emplace(fd_.get());
    buffer_.reserve(kBufferSize);
  }

  ~Output() {
    behind_.reset();  // its worker uses the descriptor
    fd_ = UniqueFd();
    if (!tempName_.empty()) ::unlink(tempName_.c_str());
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  [[nodiscard]] std::uint64_t position() const { return position_; }
  [[nodiscard]] int descriptor() const { return fd_.get(); }
  [[nodiscard]] const std::string& folder() const { return folder_; }

  void append(const void* data, std::size_t size) {
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    if (buffer_.size() + size > kBufferSize || size >= kBufferSize / 2) flush();
    if (size >= kBufferSize / 2) {
      detail::pwriteAll(fd_.get(), bytes, size, position_, folder_);
      position_ += size;
      behind_->written(position_);
      bufferStart_ = position_;
      return;
    }
    if (buffer_.empty()) bufferStart_ = position_;
    buffer_.insert(buffer_.end(), bytes, bytes + size);
    position_ += size;
  }
  void append(std::string_view text) { append(text.data(), text.size()); }

  // Rewrites bytes already appended.
  void rewrite(std::uint64_t at, std::string_view bytes) {
    if (!buffer_.empty() && at >= bufferStart_ && at + bytes.size() <= bufferStart_ + buffer_.size()) {
      std::memcpy(buffer_.data() + (at - bufferStart_), bytes.data(), bytes.size());
      return;
    }
    flush();
    detail::pwriteAll(fd_.get(), reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), at, folder_);
  }

  // Everything appended is in the file (for writers that go around this one); `to` moves the end.
  void flush() {
    if (buffer_.empty()) return;
    detail::pwriteAll(fd_.get(), buffer_.data(), buffer_.size(), bufferStart_, folder_);
    buffer_.clear();
    bufferStart_ = position_;
    behind_->written(position_);
  }
  void skipTo(std::uint64_t to) {
    flush();
    position_ = bufferStart_ = to;
  }

  // Syncs (durable packages), renames the file over the package and syncs the folder.
  void commit() {
    flush();
    behind_.reset();
    struct stat old {};
    if (::stat(finalPath_.c_str(), &old) == 0) ::fchmod(fd_.get(), old.st_mode & 07777);
    if (durable_ && ::fsync(fd_.get()) != 0) throw Exception(detail::osError("cannot sync the new package in", folder_, errno));
    if (tempName_.empty()) {
      static std::atomic<unsigned> counter{0};
      const std::string procPath = "/proc/self/fd/" + std::to_string(fd_.get());
      for (int attempt = 0;; ++attempt) {
        const std::string name = folder_ + "/." + baseOf(finalPath_) + "." + std::to_string(::getpid()) + "." +
                                 std::to_string(counter++) + ".tmp";
        if (::linkat(AT_FDCWD, procPath.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
          tempName_ = name;
          break;
        }
        if (errno != EEXIST || attempt > 100) throw Exception(detail::osError("cannot name the new package in", folder_, errno));
      }
    }
    if (::rename(tempName_.c_str(), finalPath_.c_str()) != 0) throw Exception(detail::osError("cannot replace", finalPath_, errno));
    tempName_.clear();
    removeStaleTemporaries(folder_, baseOf(finalPath_));
    const std::string closeError = fd_.close();
    if (!closeError.empty()) throw Exception("closing the new package '" + finalPath_ + "': " + closeError);
    if (durable_) {
      UniqueFd dir(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      if (!dir || ::fsync(dir.get()) != 0) throw Exception(detail::osError("cannot sync the folder", folder_, errno));
    }
  }

 private:
  static constexpr std::size_t kBufferSize = 256u << 10;
  std::string finalPath_;
  std::string folder_;
  bool durable_;
  UniqueFd fd_;
  std::string tempName_;  // a named temporary file that exists on disk
  std::optional<detail::WriteBehind> behind_;
  std::vector<std::uint8_t> buffer_;  // the bytes of [bufferStart_, position_), not yet in the file
  std::uint64_t bufferStart_ = 0;
  std::uint64_t position_ = 0;
};

}  // namespace

struct ZipWriter::Impl {
  // What a worker made of an entry ahead of the writing.
  struct Prepared {
    std::string compressed;  // whole entries: the raw deflate stream
    std::uint64_t size = 0;
    std::uint32_t crc = 0;
    bool worth = false;  // large entries: deflating the first bytes paid
  };
  // An entry waiting for its turn: entries are written in the order added. Whole entries are
  // deflated by a worker; stored ones, and large ones in pieces, stream through the writer.
  struct Pending {
    enum class Kind : std::uint8_t { Whole, Streamed, Copied } kind = Kind::Whole;
    std::string name;
    std::shared_ptr<const ContentSource> content{};
    bool deflate = false;                          // Streamed: deflate in pieces when it pays
    EntryAttributes attributes;
    std::uint64_t sourceIndex = 0;        // Copied: the old archive's entry
    std::shared_ptr<Prepared> prepared{}; // made by `task`: Whole entries, and Streamed ones to deflate
    std::optional<std::uint64_t> task{};
    std::uint64_t ahead = 0;              // bytes the task reads, counted against kReadAhead
  };
  // A worker's buffers, kept from one entry to the next.
  struct Scratch {
    Compressor compressor;  // kWholeEntryLevel
    std::string input;
    std::string output;
  };

  ZipPhysicalPackage& package;
  std::optional<Output> out;
  // The central directory as it grows: a quarter megabyte in memory, the rest in a scratch file in
  // the package's folder, so that memory does not grow with the number of entries (a record is about
  // 100-200 bytes).
  std::shared_ptr<detail::SpoolContent> directory;
  std::uint64_t entries = 0;
  std::deque<Pending> pending;
  std::size_t handed = 0;     // pending[0, handed) are handed to the workers (or need none)
  std::uint64_t inFlight = 0; // their bytes
  // Unchanged entries copied as stored bytes after the rest; empty when the old archive's
  // directory could not be read that way (they are then read and written one by one).
  std::optional<RawCopier> rawCopies;
  bool rawCopiesTried = false;
  bool used = false;    // commit() was called
  bool failed = false;  // a call threw; the temporary file goes with the writer
  std::vector<std::uint8_t> buffer = std::vector<std::uint8_t>(256u << 10);  // the writer's reads
  std::vector<Scratch> scratch;  // one a worker
  // Last, so that the workers are joined before anything their tasks use goes.
  std::optional<detail::WorkQueue> work;

  explicit Impl(ZipPhysicalPackage& p) : package(p) {}

  // Marks the writer spent and throws; the destructor then discards the temporary file.
  [[noreturn]] void fail(const std::string& text) {
    failed = true;
    throw Exception("cannot write package '" + package.getNarrowPath() + "': " + text);
  }

  template <class F>
  void guarded(const std::string& entry, F&& step) {
    try {
      step();
    } catch (const EntryError& e) {  // from a worker, naming its entry
      if (failed) throw;
      fail(e.what());
    } catch (const std::exception& e) {
      if (failed) throw;
      fail(entry.empty() ? std::string("writing the new package: ") + e.what() : "entry '" + entry + "': " + e.what());
    }
  }

  void requireUsable() const {
    if (used || failed) throw Exception("package writer for '" + package.getNarrowPath() + "' was already committed or failed");
  }

  detail::WorkQueue& workers() {
    if (!work) {
      work.emplace(detail::workerThreads(), kAhead);
      scratch.resize(work->slots());
    }
    return *work;
  }

  // The task that reads a whole entry, CRCs and deflates it.
  void readAhead(Pending& e) {
    e.prepared = std::make_shared<Prepared>();
    e.ahead = *e.content->size();
    // Held until written: allocated here rather than by a worker, so that results freed here do not
    // leave the workers' heaps in holes.
    e.prepared->compressed.reserve(static_cast<std::size_t>(e.ahead + e.ahead / 16 + 64));
    e.task = workers().submit(namingEntry(e.name, [this, source = e.content, prepared = e.prepared](unsigned worker) {
      Scratch& s = scratch[worker];
      readWhole(*source, kWholeEntryLimit, s.input);
      prepared->size = s.input.size();
      prepared->crc = static_cast<std::uint32_t>(libdeflate_crc32(0, s.input.data(), s.input.size()));
      if (!s.compressor) s.compressor = makeCompressor(kWholeEntryLevel);
      deflateInto(s.compressor.get(), s.input.data(), s.input.size(), s.output);
      prepared->compressed.assign(s.output);
      if (s.input.capacity() > kKeptScratch) s.input = std::string(), s.output = std::string();
    }));
  }

  // The task that tells whether a large entry is worth deflating.
  void probe(Pending& e) {
    constexpr std::uint64_t kProbeBytes = 256u << 10;
    e.prepared = std::make_shared<Prepared>();
    e.ahead = kProbeBytes;
    e.task = workers().submit(namingEntry(e.name, [source = e.content, prepared = e.prepared](unsigned) {
      prepared->worth = worthDeflating(*source);
    }));
  }

  // Hands the entries after the ones handed to the workers, while the read-ahead window has room
  // (the first entry always).
  void handOut() {
    while (handed < pending.size() && (inFlight < kReadAhead || handed == 0)) {
      Pending& e = pending[handed++];
      if (e.kind == Pending::Kind::Whole) readAhead(e);
      if (e.kind == Pending::Kind::Streamed && e.deflate) probe(e);
      inFlight += e.ahead;
    }
  }

  // Writes the entries at the front that are ready, and more (waiting for them) while the window
  // is full or too many wait: a large entry streams through here while the workers read ahead.
  void writeReady(bool all) {
    handOut();
    while (!pending.empty()) {
      const Pending& front = pending.front();
      const bool ready = front.kind == Pending::Kind::Whole && work->ready(*front.task);
      if (!all && !ready && handed == pending.size() && pending.size() <= kAhead) break;
      Pending e = std::move(pending.front());
      pending.pop_front();
      --handed;
      guarded(e.name, [&] {
        if (e.task) workers().wait(*e.task);
        write(e);
      });
      inFlight -= e.ahead;
      handOut();
    }
  }

  // The header of an entry whose sizes and CRC are known (else set once its data is written).
  static EntryHeader headerFor(const EntryAttributes& attributes, std::uint16_t method, std::uint32_t crc = 0,
                               std::uint64_t size = 0, std::uint64_t compressedSize = 0) {
    EntryHeader h{.method = method, .crc = crc, .compressedSize = compressedSize, .size = size,
                  .zip64 = size >= kMax32 || compressedSize >= kMax32};
    if (attributes.lastModified) {
      h.time = *attributes.lastModified;
      h.exactTime = true;
    } else {
      // Generated parts carry the system's clock, so SOURCE_DATE_EPOCH reaches them.
      h.time = FileTime{foundation::clock::now(), 0};
    }
    if (attributes.unixMode) h.external = (static_cast<std::uint32_t>(S_IFREG) | (*attributes.unixMode & 07777)) << 16;
    return h;
  }

  // Appends `size` bytes of `stream` (all of them when `size` is unset), counting their CRC when
  // asked; returns how many there were.
  std::uint64_t copyStream(InputStream& stream, std::optional<std::uint64_t> size, std::uint32_t* crc) {
    std::uint64_t total = 0;
    for (;;) {
      std::size_t want = buffer.size();
      if (size) want = static_cast<std::size_t>(std::min<std::uint64_t>(want, *size - total));
      if (want == 0) break;
      const std::size_t n = stream.read(buffer.data(), want);
      if (n == 0) break;
      if (crc != nullptr) *crc = static_cast<std::uint32_t>(libdeflate_crc32(*crc, buffer.data(), n));
      out->append(buffer.data(), n);
      total += n;
    }
    return total;
  }

  // Writes the local header, the data (by `data`) and the directory record. With `later`, sizes and
  // CRC are known only once the data is written, and the header is rewritten in place then.
  void writeEntry(const Pending& e, EntryHeader& h, const std::function<void()>& data, bool later = false) {
    const std::uint64_t at = out->position();
    out->append(localHeader(e.name, h, at));
    data();
    if (later) {
      if (!h.zip64 && (h.size >= kMax32 || h.compressedSize >= kMax32)) throw Exception("it grew past 4 GiB while being written");
      out->rewrite(at, localHeader(e.name, h, at));
    }
    addRecord(centralRecord(e.name, h, at));
  }

  void addRecord(std::string_view record) {
    directory->append(reinterpret_cast<const std::uint8_t*>(record.data()), record.size());
    ++entries;
  }

  void write(Pending& e) {
    using Kind = Pending::Kind;
    if (e.kind == Kind::Whole) {
      const Prepared& p = *e.prepared;
      EntryHeader h = headerFor(e.attributes, kMethodDeflated, p.crc, p.size, p.compressed.size());
      writeEntry(e, h, [&] { out->append(p.compressed); });
    } else if (e.kind == Kind::Streamed) {
      const bool deflate = e.prepared && e.prepared->worth;
      EntryHeader h = headerFor(e.attributes, deflate ? kMethodDeflated : kMethodStored);
      h.zip64 = *e.content->size() >= (deflate ? kZip64Guess : kMax32);
      writeEntry(e, h, [&] {
        if (!deflate) {
          h.size = h.compressedSize = copyStream(*e.content->openStream(), std::nullopt, &h.crc);
          return;
        }
        const PieceStream result =
            deflateInPieces(*e.content, [&](std::string_view bytes) { out->append(bytes); }, workers(), e.name);
        h.crc = result.crc;
        h.size = result.size;
        h.compressedSize = result.compressedSize;
      }, true);
    } else {  // an old entry's stored bytes, copied as they are
      const ZipEntry& entry = package.getEntries()[e.sourceIndex];
      if (entry.encrypted) throw Exception("an encrypted entry cannot be copied");
      EntryHeader h = headerFor(e.attributes, entry.compressionMethod, entry.crc, entry.size, entry.compressedSize);
      writeEntry(e, h, [&] {
        if (copyStream(*package.openRawEntry(e.sourceIndex), h.compressedSize, nullptr) != h.compressedSize) {
          throw Exception("the old package ended early");
        }
      });
    }
  }

  void queue(Pending e) {
    pending.push_back(std::move(e));
    writeReady(false);
  }

  // A source that cannot tell its size is read into a spool first, so that every entry's header
  // is sized up front (ZIP64 fields only where sizes need them).
  void sizeUp(Pending& e) {
    if (e.content->size()) return;
    auto spool = std::make_shared<detail::SpoolContent>(out->folder());
    const auto stream = e.content->openStream();
    while (const std::size_t n = stream->read(buffer.data(), buffer.size())) spool->append(buffer.data(), n);
    e.content = std::move(spool);
  }

  // True when the entry was queued for copying as raw bytes.
  bool queueRawCopy(std::string_view name, std::uint64_t sourceIndex, const EntryAttributes& attributes) {
    const ZipEntry& entry = package.getEntries()[sourceIndex];
    if (entry.attributes.lastModified != attributes.lastModified || entry.attributes.unixMode != attributes.unixMode) {
      return false;
    }
    if (!rawCopiesTried) {
      rawCopiesTried = true;
      if (package.directory_) rawCopies.emplace(package.fd_, package.getNarrowPath(), package.directory_);
    }
    if (!rawCopies || !rawCopies->canCopy(static_cast<std::size_t>(sourceIndex), name)) return false;
    rawCopies->add(static_cast<std::size_t>(sourceIndex));
    return true;
  }
};

ZipWriter::ZipWriter(ZipPhysicalPackage& package) : impl_(std::make_unique<Impl>(package)) {
  // Through a symbolic link the file it names is replaced, and the link stays.
  std::string finalPath = package.getNarrowPath();
  if (char* resolved = ::realpath(finalPath.c_str(), nullptr)) {
    finalPath = resolved;
    std::free(resolved);
  }
  try {
    impl_->out.emplace(finalPath, package.durable_);
    impl_->directory = std::make_shared<detail::SpoolContent>(impl_->out->folder(), 256u << 10);
  } catch (const std::exception& e) {
    throw Exception("cannot write package '" + package.getNarrowPath() + "': " + e.what());
  }
}

ZipWriter::~ZipWriter() = default;

void ZipWriter::copyEntry(std::string_view name, std::uint64_t sourceIndex, const EntryAttributes& attributes) {
  impl_->requireUsable();
  auto& package = impl_->package;
  if (!package.isArchiveOpen() || sourceIndex >= package.getEntries().size()) {
    throw Exception("cannot copy entry " + std::to_string(sourceIndex) + " of '" + package.getNarrowPath() +
                    "': no such entry in the open archive");
  }
  if (impl_->queueRawCopy(name, sourceIndex, attributes)) return;
  Impl::Pending e{.kind = Impl::Pending::Kind::Copied, .name = std::string(name), .attributes = attributes,
                  .sourceIndex = sourceIndex};
  impl_->guarded(e.name, [&] { impl_->queue(std::move(e)); });
}

void ZipWriter::addEntry(const std::string& name, std::shared_ptr<const ContentSource> source,
                         Compression compression, const EntryAttributes& attributes) {
  impl_->requireUsable();
  Impl::Pending e{.name = name, .content = std::move(source), .attributes = attributes};
  impl_->guarded(name, [&] {
    impl_->sizeUp(e);
    // Already-compressed formats are stored; large entries are also stored when a sample shows that
    // deflate does not pay. Stored bytes are read by the writer, which copies them on the same core.
    e.deflate = compression == Compression::Deflated && !isCompressedFormat(name);
    e.kind = *e.content->size() <= kWholeEntryLimit && e.deflate ? Impl::Pending::Kind::Whole : Impl::Pending::Kind::Streamed;
    impl_->queue(std::move(e));
  });
}

void ZipWriter::commit() {
  Impl& w = *impl_;
  w.requireUsable();
  w.used = true;
  w.guarded({}, [&] { w.writeReady(true); });
  w.work.reset();
  w.guarded({}, [&] {
    if (w.rawCopies && !w.rawCopies->empty()) {
      w.out->flush();
      const std::uint64_t end = w.rawCopies->copyTo(
          w.out->descriptor(), w.out->position(), [&](std::string_view record) { w.addRecord(record); }, w.out->folder());
      w.out->skipTo(end);
    }
  });
  if (w.entries == 0) w.fail("it has no entries");
  w.guarded({}, [&] {
    const std::uint64_t offset = w.out->position();
    const std::uint64_t size = w.copyStream(*w.directory->openStream(), std::nullopt, nullptr);
    w.out->append(endRecords(w.entries, offset, size));
    w.out->commit();
  });
  w.out.reset();
}

}  // namespace opc::zippackage
