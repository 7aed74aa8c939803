// FileSystemManager::extractAll: plan every target, check it all, then write through descriptors.
// The calling thread makes the folders and hands each folder's files to worker threads in batches;
// a worker reads a file's stored bytes with pread at the offset the ZIP directory gives, inflates
// and checks them, and creates and writes the file, so the kernel's file creation (most of the
// time) and inflating run in several folders at once. Entries the workers cannot take (replaced in
// this session, or not matched in the directory) stream through the package on the calling thread.
#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <libdeflate.h>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <thread>
#include <unistd.h>
#include <vector>
#include <zlib.h>

#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/kqservices/file_system_manager.h"
#include "opc/kqservices/file_system_names.h"
#include "opc/kqservices/file_system_tree.h"
#include "opc/model/package.h"
#include "opc/zippackage/central_directory.h"
#include "opc/zippackage/parallel_deflate.h"
#include "opc/zippackage/zip_physical_package.h"

namespace opc::kqservices {

namespace {

using opc::detail::narrow;
using opc::detail::osError;
using opc::detail::UniqueFd;
using detail::TreeNode;

// Deflate cannot expand its input more than 1032 times; a ZIP entry that claims more is lying.
constexpr std::uint64_t kMaxDeflateRatio = 1032;
constexpr std::size_t kCopyBuffer = 64 * 1024;
// Entries up to this size are read, inflated and written whole by a worker; larger ones stream
// through it in kStreamChunk pieces, so a worker holds under 1 MiB whatever the part sizes. Most
// files of an add-on are far smaller.
constexpr std::uint64_t kWholeEntryLimit = 256u << 10;
constexpr std::size_t kStreamChunk = 256u << 10;
// Files of one folder handed to a worker at a time: enough to make a batch worth its queueing,
// few enough that a large folder is still spread over every worker.
constexpr std::uint32_t kBatchFiles = 32;
// Batches queued at one time; each holds its folder's descriptor open.
constexpr std::size_t kQueuedLimit = 64;
constexpr std::uint32_t kNone = 0xffffffffu;
using zippackage::kLocalHeaderSize;
// Read with each entry's data in the same pread, for a local extra field the directory does not show.
constexpr std::size_t kLocalExtraSlack = 64;

// One file or folder to write; the plan holds them with each folder's children side by side.
// A few dozen bytes each: names live in one shared buffer, the path and part name are made only
// for messages.
struct Item {
  const TreeNode* node = nullptr;
  std::uint64_t size = 0;           // files: declared
  std::uint64_t localHeader = 0;    // whole entries: where the entry's local header starts
  std::int64_t seconds = 0;         // recorded modification time, when hasTime
  std::uint32_t nanoseconds = 0;
  std::uint32_t name = 0;           // offset of the NUL-terminated UTF-8 name in Plan::names
  std::uint32_t parent = kNone;     // the folder's item; kNone directly below the destination
  std::uint32_t first = 0;          // folders: children [first, first + count)
  std::uint32_t count = 0;
  std::uint32_t entry = kNone;      // files a worker writes: index of their ZIP entry
  std::uint16_t mode = 0;           // recorded permission bits, when hasMode
  bool file = false;
  bool hasTime = false;
  bool hasMode = false;
  // Created by this extraction. Set by the one thread that creates it; read by the calling thread
  // only after the workers have stopped.
  mutable bool made = false;
};

// The whole extraction: items[0] is the destination itself (a folder with no name).
struct Plan {
  std::vector<Item> items;
  std::string names;
  std::uint64_t total = 0;

  [[nodiscard]] const char* nameOf(const Item& item) const { return names.data() + item.name; }
  // Relative to the destination, for messages.
  [[nodiscard]] std::string pathOf(const Item& item) const {
    std::string path = nameOf(item);
    for (std::uint32_t up = item.parent; up != kNone && up != 0; up = items[up].parent) {
      path = std::string(nameOf(items[up])) + '/' + path;
    }
    return path;
  }
};

// For messages: the part (or, for a folder made by its files, the folder's name).
[[nodiscard]] ustring partNameOf(const Item& item) {
  return FileSystemManager::getPrefix() + item.node->encodedPath();
}

[[noreturn]] void refuse(const ustring& partName, const std::string& why) {
  throw Exception("refusing to extract '" + narrow(partName) + "': " + why);
}

// Creates the file below `dirfd` (removing an existing one first when replacing), with its final
// permission bits: no separate chmod.
UniqueFd createFile(int dirfd, const Plan& plan, const Item& item, ReplaceMode replace) {
  const char* name = plan.nameOf(item);
  if (replace == ReplaceMode::Replace && ::unlinkat(dirfd, name, 0) != 0 && errno != ENOENT) {
    refuse(partNameOf(item), osError("cannot replace", plan.pathOf(item), errno));
  }
  const mode_t mode = item.hasMode ? static_cast<mode_t>(item.mode & 0777) : 0666;
  // O_EXCL with O_NOFOLLOW: a link planted since the check makes this fail instead of being followed.
  UniqueFd fd(::openat(dirfd, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!fd) refuse(partNameOf(item), osError("cannot create", plan.pathOf(item), errno));
  item.made = true;
  return fd;
}

// Sets the recorded modification time on the open file and closes it: the end of writing every file.
void finishFile(const Plan& plan, const Item& item, UniqueFd& fd) {
  if (item.hasTime) {
    const struct timespec times[2] = {{0, UTIME_OMIT},
                                      {static_cast<time_t>(item.seconds), static_cast<long>(item.nanoseconds)}};
    if (::futimens(fd.get(), times) != 0) {
      refuse(partNameOf(item), osError("cannot set the modification time of", plan.pathOf(item), errno));
    }
  }
  if (const std::string error = fd.close(); !error.empty()) {
    refuse(partNameOf(item), "cannot write '" + plan.pathOf(item) + "': " + error);
  }
}

void checkLength(const Item& item, std::uint64_t length) {
  if (length > item.size) {
    refuse(partNameOf(item), "it inflates to more than its declared " + std::to_string(item.size) + " bytes");
  }
  if (length != item.size) {
    refuse(partNameOf(item), "it holds " + std::to_string(length) + " bytes, not its declared " +
                                 std::to_string(item.size));
  }
}

// A raw-deflate zlib stream, made on first use and reset for each entry.
class StreamInflater {
 public:
  StreamInflater() = default;
  ~StreamInflater() {
    if (ready_) inflateEnd(&stream_);
  }
  StreamInflater(const StreamInflater&) = delete;
  StreamInflater& operator=(const StreamInflater&) = delete;

  z_stream& reset() {
    if (!ready_) {
      if (inflateInit2(&stream_, -MAX_WBITS) != Z_OK) throw Exception("out of memory for an inflater");
      ready_ = true;
    } else if (inflateReset(&stream_) != Z_OK) {
      throw Exception("cannot reset an inflater");
    }
    return stream_;
  }

 private:
  z_stream stream_{};
  bool ready_ = false;
};

// What one thread needs to write entries from the package; reused for every file it writes.
struct WriterState {
  std::unique_ptr<libdeflate_decompressor, decltype(&libdeflate_free_decompressor)> inflater{
      libdeflate_alloc_decompressor(), &libdeflate_free_decompressor};
  StreamInflater streamInflater;
  std::vector<std::uint8_t> stored;
  std::vector<std::uint8_t> inflated;
};

// Reads `size` bytes at `offset` of the package into `into`, or fewer where the file ends.
std::size_t readPackage(const zippackage::ZipPhysicalPackage& physical, std::uint8_t* into, std::size_t size,
                        std::uint64_t offset) {
  std::size_t got = 0;
  while (got < size) {
    const std::size_t n = opc::detail::preadSome(physical.rawDescriptor(), into + got, size - got, offset + got,
                                                 physical.getNarrowPath());
    if (n == 0) break;
    got += n;
  }
  return got;
}

// Reads the entry's local header and as much after it as `want` asks into state.stored (at least
// the header, its name and extra field); returns where the entry's data starts in state.stored.
// Throws when the header is not there.
std::size_t readLocalHeader(const zippackage::ZipPhysicalPackage& physical, const Item& item, std::size_t want,
                            WriterState& state, std::size_t& got) {
  const zippackage::ZipEntry& entry = physical.getEntries()[item.entry];
  const std::size_t guess = std::max(want, kLocalHeaderSize + entry.name.size() + kLocalExtraSlack);
  if (state.stored.size() < guess) state.stored.resize(guess);
  got = readPackage(physical, state.stored.data(), guess, item.localHeader);
  const std::size_t headerLength = zippackage::localHeaderLength(state.stored.data(), got);
  if (headerLength == 0) refuse(partNameOf(item), "its local header in the package is missing or damaged");
  return headerLength;
}

// Reads, checks and writes one whole entry below `dirfd`. The file is created only once its bytes
// have passed the length and CRC checks.
void writeWholeEntry(int dirfd, const Plan& plan, const Item& item, const zippackage::ZipPhysicalPackage& physical,
                     ReplaceMode replace, WriterState& state) {
  const zippackage::ZipEntry& entry = physical.getEntries()[item.entry];
  const auto compressed = static_cast<std::size_t>(entry.compressedSize);
  // The local header, its name, a guess at its extra field and the data, in one read.
  std::size_t got = 0;
  const std::size_t dataAt =
      readLocalHeader(physical, item, kLocalHeaderSize + entry.name.size() + kLocalExtraSlack + compressed, state, got);
  const std::size_t end = dataAt + compressed;
  if (got < end) {
    if (state.stored.size() < end) state.stored.resize(end);
    if (readPackage(physical, state.stored.data() + got, end - got, item.localHeader + got) != end - got) {
      refuse(partNameOf(item), "its compressed data ends early");
    }
  }
  const std::uint8_t* data = state.stored.data() + dataAt;
  std::size_t length = compressed;
  if (entry.compressionMethod == 8) {
    if (!state.inflater) throw Exception("out of memory for an inflater");
    if (state.inflated.size() < item.size) state.inflated.resize(static_cast<std::size_t>(item.size));
    std::size_t inflated = 0;
    switch (libdeflate_deflate_decompress(state.inflater.get(), data, compressed, state.inflated.data(),
                                          static_cast<std::size_t>(item.size), &inflated)) {
      case LIBDEFLATE_SUCCESS:
        break;
      case LIBDEFLATE_INSUFFICIENT_SPACE:
        checkLength(item, item.size + 1);
        break;
      default:
        refuse(partNameOf(item), "its compressed data is corrupt");
    }
    data = state.inflated.data();
    length = inflated;
  }
  checkLength(item, length);
  if (libdeflate_crc32(0, data, length) != entry.crc) {
    refuse(partNameOf(item), "CRC error: its bytes do not match the checksum recorded for them");
  }
  UniqueFd fd = createFile(dirfd, plan, item, replace);
  opc::detail::writeAll(fd.get(), data, length, plan.pathOf(item));
  finishFile(plan, item, fd);
}

// Streams one large entry below `dirfd` in kStreamChunk pieces: the file is created first, and a
// defect found on the way leaves it for the caller's undo.
void writeLargeEntry(int dirfd, const Plan& plan, const Item& item, const zippackage::ZipPhysicalPackage& physical,
                     ReplaceMode replace, WriterState& state) {
  const zippackage::ZipEntry& entry = physical.getEntries()[item.entry];
  std::size_t got = 0;
  const std::uint64_t dataAt = item.localHeader + readLocalHeader(physical, item, 0, state, got);
  if (state.stored.size() < kStreamChunk) state.stored.resize(kStreamChunk);
  if (state.inflated.size() < kStreamChunk) state.inflated.resize(kStreamChunk);
  const bool deflated = entry.compressionMethod == 8;
  z_stream* zs = deflated ? &state.streamInflater.reset() : nullptr;
  UniqueFd fd = createFile(dirfd, plan, item, replace);
  const std::string path = plan.pathOf(item);
  std::uint64_t written = 0;
  uLong crc = crc32(0, nullptr, 0);
  const auto emit = [&](const std::uint8_t* data, std::size_t length) {
    written += length;
    if (written > item.size) {
      refuse(partNameOf(item), "it inflates to more than its declared " + std::to_string(item.size) + " bytes");
    }
    crc = crc32_z(crc, data, length);
    opc::detail::writeAll(fd.get(), data, length, path);
  };
  bool ended = !deflated;
  for (std::uint64_t done = 0; done < entry.compressedSize;) {
    const auto want = static_cast<std::size_t>(std::min<std::uint64_t>(kStreamChunk, entry.compressedSize - done));
    if (readPackage(physical, state.stored.data(), want, dataAt + done) != want) {
      refuse(partNameOf(item), "its compressed data ends early");
    }
    done += want;
    if (!deflated) {
      emit(state.stored.data(), want);
      continue;
    }
    zs->next_in = state.stored.data();
    zs->avail_in = static_cast<uInt>(want);
    while (zs->avail_in > 0 && !ended) {
      zs->next_out = state.inflated.data();
      zs->avail_out = static_cast<uInt>(kStreamChunk);
      const int rc = inflate(zs, Z_NO_FLUSH);
      if (rc != Z_OK && rc != Z_STREAM_END) refuse(partNameOf(item), "its compressed data is corrupt");
      emit(state.inflated.data(), kStreamChunk - zs->avail_out);
      ended = rc == Z_STREAM_END;
    }
  }
  if (!ended) refuse(partNameOf(item), "its compressed data is corrupt");
  checkLength(item, written);
  if (static_cast<std::uint32_t>(crc) != entry.crc) {
    refuse(partNameOf(item), "CRC error: its bytes do not match the checksum recorded for them");
  }
  finishFile(plan, item, fd);
}

// Files of one folder whose entries a worker reads, written by one worker.
struct Batch {
  std::shared_ptr<const UniqueFd> folder;  // kept open until the batch is done
  std::uint32_t first = 0;                 // items [first, last) of the folder's children
  std::uint32_t last = 0;
};

// Worker threads that write batches in the order given; the queue holds at most kQueuedLimit. With
// no workers, batches run on submit. After a batch fails, submit throws its error and finish
// returns it; the batches still queued are dropped (their files are not created).
class Workers {
 public:
  Workers(unsigned count, const Plan& plan, const zippackage::ZipPhysicalPackage& physical, ReplaceMode replace)
      : plan_(plan), physical_(physical), replace_(replace) {
    for (unsigned i = 0; i < count; ++i) threads_.emplace_back([this] { work(); });
  }
  ~Workers() {
    abandon();
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  void submit(Batch batch) {
    if (threads_.empty()) {
      run(batch, inline_);
      return;
    }
    std::unique_lock lock(mutex_);
    room_.wait(lock, [&] { return !error_.empty() || queue_.size() < kQueuedLimit; });
    if (!error_.empty()) throw Exception(error_);
    queue_.push_back(std::move(batch));
    wake_.notify_one();
  }

  // Waits for every batch submitted. Returns the error of the first that failed, or "".
  [[nodiscard]] std::string finish() {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [&] { return queue_.empty() && running_ == 0; });
    return error_;
  }

  // Drops the batches not started and waits for the running ones.
  void abandon() noexcept {
    std::unique_lock lock(mutex_);
    queue_.clear();
    room_.wait(lock, [&] { return running_ == 0; });
  }

 private:
  void run(const Batch& batch, WriterState& state) const {
    for (std::uint32_t i = batch.first; i < batch.last; ++i) {
      const Item& item = plan_.items[i];
      if (!item.file || item.entry == kNone) continue;
      if (item.size <= kWholeEntryLimit) {
        writeWholeEntry(batch.folder->get(), plan_, item, physical_, replace_, state);
      } else {
        writeLargeEntry(batch.folder->get(), plan_, item, physical_, replace_, state);
      }
    }
  }

  void work() {
    WriterState state;
    for (;;) {
      Batch batch;
      {
        std::unique_lock lock(mutex_);
        wake_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) return;
        batch = std::move(queue_.front());
        queue_.pop_front();
        ++running_;
      }
      std::string error;
      try {
        run(batch, state);
      } catch (const std::exception& e) {
        error = e.what();
        if (error.empty()) error = "unknown error";
      }
      batch.folder.reset();
      {
        const std::lock_guard lock(mutex_);
        --running_;
        if (error_.empty() && !error.empty()) {
          error_ = std::move(error);
          queue_.clear();
        }
      }
      room_.notify_all();
    }
  }

  const Plan& plan_;
  const zippackage::ZipPhysicalPackage& physical_;
  ReplaceMode replace_;
  WriterState inline_;  // the calling thread's, when there are no workers
  std::mutex mutex_;
  std::condition_variable wake_;  // workers: a batch was queued, or stop
  std::condition_variable room_;  // the caller: a batch finished
  std::deque<Batch> queue_;
  unsigned running_ = 0;
  std::string error_;  // of the first batch that failed
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

// Where each entry's local header starts, by entry index, from the directory the package keeps
// open; empty when the package is not open for reading. An entry whose record does not agree with
// what the package listed gets ~0 and streams through the package.
std::vector<std::uint64_t> localHeaderOffsets(const model::Package& package) {
  if (package.getOpenMode() != interfaces::OpenMode::Read) return {};
  const zippackage::ZipPhysicalPackage& physical = package.getPhysicalPackage();
  const std::vector<zippackage::ZipEntry>& entries = physical.getEntries();
  const std::shared_ptr<const zippackage::CentralDirectory>& directory = physical.directory();
  if (physical.rawDescriptor() < 0 || !directory || directory->records().size() != entries.size()) return {};
  const std::vector<zippackage::DirectoryRecord>& records = directory->records();
  std::vector<std::uint64_t> offsets(entries.size(), ~std::uint64_t{0});
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const zippackage::DirectoryRecord& record = records[i];
    const zippackage::ZipEntry& entry = entries[i];
    if (record.compressedSize == entry.compressedSize && record.size == entry.size && record.crc == entry.crc &&
        record.method == entry.compressionMethod) {
      offsets[i] = record.localHeaderOffset;
    }
  }
  return offsets;
}

class Extraction {
 public:
  Extraction(model::Package& package, RestoreMode restore, TransformMode transform, ReplaceMode replace)
      : package_(package), restore_(restore), transform_(transform), replace_(replace) {
    indexZipEntries();
    localHeaders_ = localHeaderOffsets(package_);
  }

  // Builds the plan below the tree's root and checks everything that needs no disk.
  void plan(const TreeNode& root) {
    // One item a part and one a folder: a doubling table would cost half as much again at its peak.
    const std::size_t parts = package_.getPartCount();
    plan_.items.reserve(parts + parts / 8 + 16);
    plan_.items.emplace_back();
    plan_.items[0].node = &root;
    plan_.names.push_back('\0');
    ustring encoded;
    planFolder(0, root, encoded);
    // Only the plan is needed from here on.
    std::vector<std::pair<std::size_t, std::uint32_t>>().swap(zipEntries_);
  }

  [[nodiscard]] std::uint64_t total() const { return plan_.total; }

  // Checks what is already below `dirfd` for every target: no symbolic link or file where a folder
  // goes, and no file where one would be written unless it may be replaced.
  void checkExisting(int dirfd, const Item& folder) const {
    for (std::uint32_t i = folder.first; i < folder.first + folder.count; ++i) {
      const Item& item = plan_.items[i];
      struct stat st {};
      if (::fstatat(dirfd, plan_.nameOf(item), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) continue;
        refuse(partNameOf(item), osError("cannot examine", plan_.pathOf(item), errno));
      }
      const std::string path = plan_.pathOf(item);
      if (item.file) {
        if (S_ISDIR(st.st_mode)) refuse(partNameOf(item), "'" + path + "' is a folder in the destination");
        if (replace_ == ReplaceMode::Never) refuse(partNameOf(item), "'" + path + "' exists in the destination");
        continue;
      }
      if (S_ISLNK(st.st_mode)) refuse(partNameOf(item), "'" + path + "' is a symbolic link in the destination");
      if (!S_ISDIR(st.st_mode)) refuse(partNameOf(item), "'" + path + "' is a file in the destination");
      const UniqueFd sub = openFolder(dirfd, item);
      checkExisting(sub.get(), item);
    }
  }
  void checkExisting(int dirfd) const { checkExisting(dirfd, plan_.items[0]); }

  // Writes the whole tree below the destination `root`. On failure removes everything this call
  // created (after the workers have stopped) and rethrows.
  void writeAll(int root) {
    const unsigned threads = zippackage::deflateThreads();
    Workers workers(threads > 1 ? threads : 0, plan_, package_.getPhysicalPackage(), replace_);
    try {
      write(workers, std::make_shared<const UniqueFd>(::fcntl(root, F_DUPFD_CLOEXEC, 0)), plan_.items[0]);
      if (std::string error = workers.finish(); !error.empty()) throw Exception(std::move(error));
    } catch (...) {
      workers.abandon();
      undo(root, plan_.items[0]);
      throw;
    }
  }

 private:
  void planFolder(std::uint32_t folderIndex, const TreeNode& folder, ustring& encoded) {
    const std::vector<TreeNode::Named> children = folder.sortedChildren();
    const auto first = static_cast<std::uint32_t>(plan_.items.size());
    plan_.items[folderIndex].first = first;
    plan_.items[folderIndex].count = static_cast<std::uint32_t>(children.size());
    plan_.items.resize(plan_.items.size() + children.size());
    const std::size_t base = encoded.size();
    for (std::uint32_t k = 0; k < children.size(); ++k) {
      const TreeNode& node = *children[k].node;
      Item& item = plan_.items[first + k];
      item.node = &node;
      item.parent = folderIndex;
      encoded.resize(base);
      if (base != 0) encoded += u'/';
      encoded += node.segment();
      const ustring partName = FileSystemManager::getPrefix() + encoded;
      const ustring name = transform_ == TransformMode::Encode ? children[k].name : ustring(node.segment());
      if (const char* defect = detail::componentDefect(name)) refuse(partName, defect);
      item.name = static_cast<std::uint32_t>(plan_.names.size());
      plan_.names += opc::detail::toUtf8(name, "file name of part '" + narrow(partName) + "'");
      plan_.names.push_back('\0');
      if (!node.file) continue;
      item.file = true;
      const model::PartPtr part = package_.getPart(model::PartName(partName));
      item.size = part->getSize();
      const std::uint32_t entry = findEntry(part->getPartName());
      checkDeclaredSize(*part, item.size, entry);
      if (isDirect(entry, item.size)) {
        item.entry = entry;
        item.localHeader = localHeaders_[entry];
      }
      plan_.total += item.size;
      if (restore_ == RestoreMode::Attributes) {
        if (const std::optional<FileTime> time = part->getLastModifiedTime()) {
          item.hasTime = true;
          item.seconds = time->seconds;
          item.nanoseconds = time->nanoseconds;
        }
        if (const std::optional<std::uint32_t> mode = part->getUnixMode()) {
          item.hasMode = true;
          item.mode = static_cast<std::uint16_t>(*mode & 07777);
        }
      }
    }
    refuseCollisions(first, first + static_cast<std::uint32_t>(children.size()));
    for (std::uint32_t k = 0; k < children.size(); ++k) {
      if (plan_.items[first + k].file) continue;
      encoded.resize(base);
      if (base != 0) encoded += u'/';
      encoded += children[k].node->segment();
      planFolder(first + k, *children[k].node, encoded);
    }
    encoded.resize(base);
  }

  // Two children of one folder written under one name: the later one is refused, naming the first.
  void refuseCollisions(std::uint32_t first, std::uint32_t last) const {
    std::vector<std::uint32_t> order(last - first);
    for (std::uint32_t i = first; i < last; ++i) order[i - first] = i;
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
      const int c = std::strcmp(plan_.nameOf(plan_.items[a]), plan_.nameOf(plan_.items[b]));
      return c != 0 ? c < 0 : a < b;
    });
    std::uint32_t later = kNone;
    std::uint32_t earlier = kNone;
    for (std::size_t k = 1; k < order.size(); ++k) {
      const bool same = std::strcmp(plan_.nameOf(plan_.items[order[k - 1]]), plan_.nameOf(plan_.items[order[k]])) == 0;
      if (same && (later == kNone || order[k] < later)) {
        later = order[k];
        earlier = order[k - 1];
      }
    }
    if (later == kNone) return;
    const Item& item = plan_.items[later];
    refuse(partNameOf(item), "it would be written to '" + plan_.pathOf(item) + "' like '" +
                                 narrow(partNameOf(plan_.items[earlier])) + "'");
  }

  // Entries keyed by the hash of their part name's key, sorted: 16 bytes an entry, where a map of
  // names would copy every name.
  void indexZipEntries() {
    const std::vector<zippackage::ZipEntry>& entries = package_.getPhysicalPackage().getEntries();
    zipEntries_.reserve(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) {
      try {
        const model::PartName name = model::PartName::fromZipItemName(entries[i].name);
        zipEntries_.emplace_back(model::PartNameKeyHash()(name), static_cast<std::uint32_t>(i));
      } catch (const Exception&) {
        // Items that are no part ("[Content_Types].xml") cannot be content files.
      }
    }
    std::sort(zipEntries_.begin(), zipEntries_.end());
  }

  // The ZIP entry holding the part, or kNone.
  [[nodiscard]] std::uint32_t findEntry(const model::PartName& name) const {
    const std::vector<zippackage::ZipEntry>& entries = package_.getPhysicalPackage().getEntries();
    const std::size_t hash = model::PartNameKeyHash()(name);
    auto it = std::lower_bound(zipEntries_.begin(), zipEntries_.end(), std::make_pair(hash, std::uint32_t{0}));
    for (; it != zipEntries_.end() && it->first == hash; ++it) {
      if (model::PartName::fromZipItemName(entries[it->second].name) == name) return it->second;
    }
    return kNone;
  }

  // A part still stored as it was in the file must not declare more than its data can inflate to.
  void checkDeclaredSize(const model::Part& part, std::uint64_t size, std::uint32_t entryIndex) const {
    if (entryIndex == kNone) return;
    const zippackage::ZipEntry& entry = package_.getPhysicalPackage().getEntries()[entryIndex];
    if (entry.size != size) return;  // content replaced in this session
    const bool impossible = entry.compressionMethod == 0
                                ? entry.size != entry.compressedSize
                                : entry.size / kMaxDeflateRatio > entry.compressedSize;
    if (impossible) {
      refuse(part.getPartName().getName(), "it declares " + std::to_string(entry.size) + " bytes from " +
                                               std::to_string(entry.compressedSize) +
                                               " compressed bytes, more than its compression can yield");
    }
  }

  // A worker reads a part's ZIP entry itself when the package is open for reading (so the part is
  // still stored as it was), the entry's local header is known, and it is stored or deflated, not
  // encrypted. Whole entries must not be stored larger than deflate's worst case.
  [[nodiscard]] bool isDirect(std::uint32_t entryIndex, std::uint64_t size) const {
    if (entryIndex == kNone || localHeaders_.empty() || localHeaders_[entryIndex] == ~std::uint64_t{0}) return false;
    const zippackage::ZipEntry& entry = package_.getPhysicalPackage().getEntries()[entryIndex];
    if (entry.size != size || entry.encrypted) return false;
    if (size <= kWholeEntryLimit && entry.compressedSize > kWholeEntryLimit + kWholeEntryLimit / 8) return false;
    return entry.compressionMethod == 0 || entry.compressionMethod == 8;
  }

  // Writes the children of `folder` below `dir`: the entries workers read go to them in batches
  // (still in progress on return; the batches keep `dir` open), the rest is written here, then each
  // subfolder is made and entered.
  void write(Workers& workers, const std::shared_ptr<const UniqueFd>& dir, const Item& folder) {
    if (!*dir) throw Exception(osError("cannot open the destination", "", errno));
    const int dirfd = dir->get();
    const std::uint32_t last = folder.first + folder.count;
    Batch batch;
    std::uint32_t inBatch = 0;
    const auto flush = [&](std::uint32_t end) {
      if (inBatch == 0) return;
      batch.last = end;
      workers.submit(std::move(batch));
      batch = Batch();
      inBatch = 0;
    };
    for (std::uint32_t i = folder.first; i < last; ++i) {
      const Item& item = plan_.items[i];
      if (!item.file) continue;
      if (item.entry == kNone) {
        writeStreamed(dirfd, item);
        continue;
      }
      if (inBatch == 0) {
        batch.folder = dir;
        batch.first = i;
      }
      if (++inBatch == kBatchFiles) flush(i + 1);
    }
    flush(last);
    for (std::uint32_t i = folder.first; i < last; ++i) {
      const Item& item = plan_.items[i];
      if (item.file) continue;
      if (::mkdirat(dirfd, plan_.nameOf(item), 0777) == 0) {
        item.made = true;
      } else if (errno != EEXIST) {
        refuse(partNameOf(item), osError("cannot create the folder", plan_.pathOf(item), errno));
      }
      write(workers, std::make_shared<const UniqueFd>(openFolder(dirfd, item)), item);
    }
  }

  // Removes what this extraction created below `dirfd`, deepest first; folders are entered without
  // following links. Best effort: what cannot be removed stays.
  void undo(int dirfd, const Item& folder) const noexcept {
    for (std::uint32_t i = folder.first + folder.count; i-- > folder.first;) {
      const Item& item = plan_.items[i];
      if (!item.file) {
        const UniqueFd sub(::openat(dirfd, plan_.nameOf(item), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (sub) undo(sub.get(), item);
      }
      if (item.made) (void)::unlinkat(dirfd, plan_.nameOf(item), item.file ? 0 : AT_REMOVEDIR);
      item.made = false;
    }
  }

  [[nodiscard]] UniqueFd openFolder(int dirfd, const Item& item) const {
    UniqueFd fd(::openat(dirfd, plan_.nameOf(item), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) refuse(partNameOf(item), osError("cannot open the folder", plan_.pathOf(item), errno));
    return fd;
  }

  // A file the workers do not take: read through the package (inflated and CRC-checked there).
  void writeStreamed(int dirfd, const Item& item) const {
    UniqueFd fd = createFile(dirfd, plan_, item, replace_);
    const model::PartPtr part = package_.getPart(model::PartName(partNameOf(item)));
    std::unique_ptr<InputStream> in = part->getInputStream();
    std::vector<std::uint8_t> buffer(kCopyBuffer);
    std::uint64_t written = 0;
    for (;;) {
      const std::size_t n = in->read(buffer.data(), buffer.size());
      if (n == 0) break;
      written += n;
      if (written > item.size) {
        refuse(partNameOf(item), "it inflates to more than its declared " + std::to_string(item.size) + " bytes");
      }
      opc::detail::writeAll(fd.get(), buffer.data(), n, plan_.pathOf(item));
    }
    checkLength(item, written);
    finishFile(plan_, item, fd);
  }

  model::Package& package_;
  RestoreMode restore_;
  TransformMode transform_;
  ReplaceMode replace_;
  std::vector<std::pair<std::size_t, std::uint32_t>> zipEntries_;  // (key hash, entry index), sorted
  std::vector<std::uint64_t> localHeaders_;  // by entry index; ~0 when unknown
  Plan plan_;
};

// The nearest folder of `path` that exists (the path itself when it does), for the free-space query.
std::string nearestExisting(std::string path) {
  struct stat st {};
  while (::stat(path.c_str(), &st) != 0) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    path = slash == 0 ? "/" : path.substr(0, slash);
  }
  return path;
}

void checkFreeSpace(const std::string& destination, std::uint64_t needed) {
  const std::string existing = nearestExisting(destination);
  struct statvfs fs {};
  if (::statvfs(existing.c_str(), &fs) != 0) throw Exception(osError("cannot query the free space of", existing, errno));
  const std::uint64_t available = static_cast<std::uint64_t>(fs.f_bavail) * fs.f_frsize;
  if (needed > available) {
    throw Exception("refusing to extract to '" + destination + "': the files take " + std::to_string(needed) +
                    " bytes, and only " + std::to_string(available) + " are free");
  }
}

}  // namespace

void FileSystemManager::extractAll(const ustring& destination, RestoreMode restore, TransformMode transform,
                                   ReplaceMode replace) {
  const TreeNode& root = index().root;
  Extraction extraction(package_, restore, transform, replace);
  extraction.plan(root);

  const std::string dest = opc::detail::toUtf8(destination, "destination folder");
  if (dest.empty()) throw Exception("no destination folder given");
  struct stat st {};
  if (::stat(dest.c_str(), &st) == 0) {
    if (!S_ISDIR(st.st_mode)) throw Exception("cannot extract to '" + dest + "': it is not a folder");
    UniqueFd fd(::open(dest.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) throw Exception(osError("cannot open the destination", dest, errno));
    extraction.checkExisting(fd.get());
  }
  checkFreeSpace(dest, extraction.total());

  // Checks passed: from here on, files are written.
  LocalFileSystemOps().createDirectories(destination);
  UniqueFd fd(::open(dest.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) throw Exception(osError("cannot open the destination", dest, errno));
  extraction.writeAll(fd.get());
}

}  // namespace opc::kqservices
