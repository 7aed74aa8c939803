// FileSystemManager::extractAll: plan every target, check it all, then write through descriptors.
// The reading thread makes the folders and reads each file's stored bytes; worker threads create
// the files, inflate, check and write them, so the kernel's work and inflating run on every core.
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <fcntl.h>
#include <libdeflate.h>
#include <mutex>
#include <optional>
#include <thread>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <unordered_map>
#include <vector>

#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/kqservices/file_system_manager.h"
#include "opc/kqservices/file_system_names.h"
#include "opc/kqservices/file_system_tree.h"
#include "opc/model/package.h"
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
// Entries up to this size are handed to a worker whole; larger ones stream through the reading
// thread in kCopyBuffer pieces.
constexpr std::uint64_t kWholeEntryLimit = 1u << 20;
// Stored plus inflated bytes of the files queued or being written at one time.
constexpr std::uint64_t kInFlightLimit = 4u << 20;
// Files queued at one time; each may hold its folder's descriptor open.
constexpr std::size_t kQueuedLimit = 256;

// One file or folder to write.
struct Target {
  std::string name;  // UTF-8 file name in its folder
  std::string path;  // relative to the destination, for messages
  const TreeNode* node = nullptr;
  bool file = false;
  model::PartPtr part;
  const zippackage::ZipEntry* entry = nullptr;  // read from this entry's stored bytes by a worker
  std::uint64_t size = 0;
  std::optional<FileTime> time;
  std::optional<std::uint32_t> mode;
  std::vector<Target> children;
  // Created by this extraction. Set by the thread that creates it; read by the reading thread only
  // after the workers have stopped.
  mutable bool made = false;

  // For messages: the part (or, for a folder made by its files, the folder's name). Made on demand:
  // a tree of many files need not hold every name twice.
  [[nodiscard]] ustring partName() const { return FileSystemManager::getPrefix() + node->encodedPath(); }
};

[[noreturn]] void refuse(const ustring& partName, const std::string& why) {
  throw Exception("refusing to extract '" + narrow(partName) + "': " + why);
}

// One file whose stored bytes are read: inflated, checked and written by a worker.
struct Job {
  const Target* target = nullptr;
  std::shared_ptr<const UniqueFd> folder;  // kept open by the job until it is done
  ReplaceMode replace = ReplaceMode::Never;
  UniqueFd fd;
  std::vector<std::uint8_t> stored;
  bool deflated = false;
  std::uint32_t crc = 0;
  std::uint64_t cost = 0;  // bytes held while queued and written
  std::string error;  // what() of the failure, empty on success
};
using JobPtr = std::shared_ptr<Job>;

// Creates the file below `dirfd` (removing an existing one first when replacing).
UniqueFd createFile(int dirfd, const Target& target, ReplaceMode replace) {
  if (replace == ReplaceMode::Replace && ::unlinkat(dirfd, target.name.c_str(), 0) != 0 && errno != ENOENT) {
    refuse(target.partName(), osError("cannot replace", target.path, errno));
  }
  const mode_t mode = target.mode ? static_cast<mode_t>(*target.mode & 0777) : 0666;
  // O_EXCL with O_NOFOLLOW: a link planted since the check makes this fail instead of being followed.
  UniqueFd fd(::openat(dirfd, target.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
  if (!fd) refuse(target.partName(), osError("cannot create", target.path, errno));
  target.made = true;
  return fd;
}

// Sets the recorded modification time and closes: the end of writing every file.
void finishFile(const Target& target, UniqueFd& fd) {
  if (target.time) {
    const struct timespec times[2] = {{0, UTIME_OMIT},
                                      {static_cast<time_t>(target.time->seconds),
                                       static_cast<long>(target.time->nanoseconds)}};
    if (::futimens(fd.get(), times) != 0) {
      refuse(target.partName(), osError("cannot set the modification time of", target.path, errno));
    }
  }
  if (const std::string error = fd.close(); !error.empty()) {
    refuse(target.partName(), "cannot write '" + target.path + "': " + error);
  }
}

void checkLength(const Target& target, std::uint64_t length) {
  if (length > target.size) {
    refuse(target.partName(), "it inflates to more than its declared " + std::to_string(target.size) + " bytes");
  }
  if (length != target.size) {
    refuse(target.partName(), "it holds " + std::to_string(length) + " bytes, not its declared " +
                                std::to_string(target.size));
  }
}

// Inflates (into `scratch`, reused between jobs), checks length and CRC, writes and closes.
void runJob(Job& job, libdeflate_decompressor* inflater, std::vector<std::uint8_t>& scratch) {
  const Target& target = *job.target;
  job.fd = createFile(job.folder->get(), target, job.replace);
  const std::uint8_t* data = job.stored.data();
  std::size_t length = job.stored.size();
  if (job.deflated) {
    if (scratch.size() < target.size) scratch.resize(static_cast<std::size_t>(target.size));
    std::size_t inflated = 0;
    switch (libdeflate_deflate_decompress(inflater, job.stored.data(), job.stored.size(), scratch.data(),
                                          static_cast<std::size_t>(target.size), &inflated)) {
      case LIBDEFLATE_SUCCESS:
        break;
      case LIBDEFLATE_INSUFFICIENT_SPACE:
        checkLength(target, target.size + 1);
        break;
      default:
        refuse(target.partName(), "its compressed data is corrupt");
    }
    data = scratch.data();
    length = inflated;
  }
  checkLength(target, length);
  if (libdeflate_crc32(0, data, length) != job.crc) {
    refuse(target.partName(), "CRC error: its bytes do not match the checksum recorded for them");
  }
  opc::detail::writeAll(job.fd.get(), data, length, target.path);
  finishFile(target, job.fd);
}

// Worker threads that run jobs in the order given. The bytes held by queued and running jobs stay
// under kInFlightLimit and the queue under kQueuedLimit (one larger job may run alone). With no workers, jobs run on submit. After a
// job fails, submit throws its error, and finish returns it.
class Workers {
 public:
  explicit Workers(unsigned count) {
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

  void submit(JobPtr job) {
    if (threads_.empty()) {
      run(*job);
      if (!job->error.empty()) throw Exception(job->error);
      return;
    }
    std::unique_lock lock(mutex_);
    room_.wait(lock, [&] {
      return !error_.empty() ||
             ((held_ == 0 || held_ + job->cost <= kInFlightLimit) && queue_.size() < kQueuedLimit);
    });
    if (!error_.empty()) throw Exception(error_);
    held_ += job->cost;
    queue_.push_back(std::move(job));
    wake_.notify_one();
  }

  // Waits for every job submitted. Returns the error of the first that failed, or "".
  [[nodiscard]] std::string finish() {
    std::unique_lock lock(mutex_);
    room_.wait(lock, [&] { return queue_.empty() && running_ == 0; });
    return error_;
  }

  // Drops the jobs not started (their files are not created yet) and waits for the running ones.
  void abandon() noexcept {
    std::unique_lock lock(mutex_);
    queue_.clear();
    held_ = 0;
    room_.wait(lock, [&] { return running_ == 0; });
  }

 private:
  static void run(Job& job) {
    thread_local std::unique_ptr<libdeflate_decompressor, decltype(&libdeflate_free_decompressor)> inflater(
        libdeflate_alloc_decompressor(), &libdeflate_free_decompressor);
    thread_local std::vector<std::uint8_t> scratch;
    try {
      if (!inflater) throw Exception("out of memory for an inflater");
      runJob(job, inflater.get(), scratch);
    } catch (const std::exception& e) {
      job.error = e.what();
      if (job.error.empty()) job.error = "unknown error";
    }
    if (scratch.size() > kWholeEntryLimit / 4) std::vector<std::uint8_t>().swap(scratch);
    job.stored = {};
    job.fd = UniqueFd();
    job.folder.reset();
  }

  void work() {
    for (;;) {
      JobPtr job;
      {
        std::unique_lock lock(mutex_);
        wake_.wait(lock, [&] { return stopping_ || !queue_.empty(); });
        if (queue_.empty()) return;
        job = std::move(queue_.front());
        queue_.pop_front();
        ++running_;
      }
      run(*job);
      {
        const std::lock_guard lock(mutex_);
        held_ = held_ >= job->cost ? held_ - job->cost : 0;
        --running_;
        if (error_.empty()) error_ = job->error;
      }
      room_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;  // workers: a job was queued, or stop
  std::condition_variable room_;  // the reader: a job finished
  std::deque<JobPtr> queue_;
  std::uint64_t held_ = 0;
  unsigned running_ = 0;
  std::string error_;  // of the first job that failed
  bool stopping_ = false;
  std::vector<std::thread> threads_;
};

class Extraction {
 public:
  Extraction(model::Package& package, RestoreMode restore, TransformMode transform, ReplaceMode replace)
      : package_(package),
        restore_(restore),
        transform_(transform),
        replace_(replace),
        workers_(zippackage::deflateThreads() > 1 ? zippackage::deflateThreads() : 0) {
    indexZipEntries();
  }

  // Builds the targets below `folder` and checks everything that needs no disk.
  void plan(const TreeNode& folder, Target& into) {
    std::unordered_map<std::string, const TreeNode*> seen;
    for (const TreeNode* node : folder.sortedChildren()) {
      Target target;
      target.node = node;
      const ustring name = transform_ == TransformMode::Encode ? node->name : node->segment;
      if (const char* defect = detail::componentDefect(name)) refuse(target.partName(), defect);
      target.name = opc::detail::toUtf8(name, "file name of part '" + narrow(target.partName()) + "'");
      target.path = into.path.empty() ? target.name : into.path + '/' + target.name;
      if (const auto [it, fresh] = seen.emplace(target.name, node); !fresh) {
        refuse(target.partName(), "it would be written to '" + target.path + "' like '" +
                                    narrow(FileSystemManager::getPrefix() + it->second->encodedPath()) + "'");
      }
      if (node->file) {
        target.file = true;
        target.part = package_.getPart(model::PartName(target.partName()));
        target.size = target.part->getSize();
        checkDeclaredSize(*target.part, target.size);
        target.entry = wholeEntry(*target.part, target.size);
        total_ += target.size;
        if (restore_ == RestoreMode::Attributes) {
          target.time = target.part->getLastModifiedTime();
          target.mode = target.part->getUnixMode();
        }
      } else {
        plan(*node, target);
      }
      into.children.push_back(std::move(target));
    }
  }

  [[nodiscard]] std::uint64_t total() const { return total_; }

  // Checks what is already below `dirfd` for every target: no symbolic link or file where a folder
  // goes, and no file where one would be written unless it may be replaced.
  void checkExisting(int dirfd, const Target& folder) const {
    for (const Target& target : folder.children) {
      struct stat st {};
      if (::fstatat(dirfd, target.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        if (errno == ENOENT) continue;
        refuse(target.partName(), osError("cannot examine", target.path, errno));
      }
      if (target.file) {
        if (S_ISDIR(st.st_mode)) refuse(target.partName(), "'" + target.path + "' is a folder in the destination");
        if (replace_ == ReplaceMode::Never) refuse(target.partName(), "'" + target.path + "' exists in the destination");
        continue;
      }
      if (S_ISLNK(st.st_mode)) refuse(target.partName(), "'" + target.path + "' is a symbolic link in the destination");
      if (!S_ISDIR(st.st_mode)) refuse(target.partName(), "'" + target.path + "' is a file in the destination");
      const UniqueFd sub = openFolder(dirfd, target);
      checkExisting(sub.get(), target);
    }
  }

  // Writes the whole tree below the destination `root`. On failure removes everything this call
  // created (after the workers have stopped) and rethrows.
  void writeAll(int root, const Target& top) {
    try {
      write(std::make_shared<const UniqueFd>(::fcntl(root, F_DUPFD_CLOEXEC, 0)), top);
      if (std::string error = workers_.finish(); !error.empty()) throw Exception(std::move(error));
    } catch (...) {
      workers_.abandon();
      undo(root, top);
      throw;
    }
  }

 private:
  // Writes the targets below `dir`; files whose stored bytes a worker handles may still be in
  // progress on return (the workers keep `dir` open).
  void write(const std::shared_ptr<const UniqueFd>& dir, const Target& folder) {
    if (!*dir) throw Exception(osError("cannot open the destination", "", errno));
    const int dirfd = dir->get();
    for (const Target& target : folder.children) {
      if (target.file) {
        if (target.entry != nullptr) {
          startFile(dir, target);
        } else {
          writeFile(dirfd, target);
        }
        continue;
      }
      if (::mkdirat(dirfd, target.name.c_str(), 0777) == 0) {
        target.made = true;
      } else if (errno != EEXIST) {
        refuse(target.partName(), osError("cannot create the folder", target.path, errno));
      }
      write(std::make_shared<const UniqueFd>(openFolder(dirfd, target)), target);
    }
  }

  void indexZipEntries() {
    const zippackage::ZipPhysicalPackage& physical = package_.getPhysicalPackage();
    for (const zippackage::ZipEntry& entry : physical.getEntries()) {
      try {
        zipEntries_.emplace(model::PartName::fromZipItemName(entry.name).getKey(), &entry);
      } catch (const Exception&) {
        // Items that are no part ("[Content_Types].xml") cannot be content files.
      }
    }
  }

  // A part still stored as it was in the file must not declare more than its data can inflate to.
  void checkDeclaredSize(const model::Part& part, std::uint64_t size) const {
    const auto it = zipEntries_.find(part.getPartName().getKey());
    if (it == zipEntries_.end()) return;
    const zippackage::ZipEntry& entry = *it->second;
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

  // The ZIP entry of a part still stored as it was when the package was opened for reading, when
  // it is small enough to be inflated whole, stored or deflated, and not encrypted.
  [[nodiscard]] const zippackage::ZipEntry* wholeEntry(const model::Part& part, std::uint64_t size) const {
    if (package_.getOpenMode() != interfaces::OpenMode::Read) return nullptr;
    const auto it = zipEntries_.find(part.getPartName().getKey());
    if (it == zipEntries_.end()) return nullptr;
    const zippackage::ZipEntry& entry = *it->second;
    if (entry.size != size || entry.encrypted || size > kWholeEntryLimit ||
        entry.compressedSize > kWholeEntryLimit + kWholeEntryLimit / 8) {
      return nullptr;
    }
    if (entry.compressionMethod != 0 && entry.compressionMethod != 8) return nullptr;
    return &entry;
  }

  // Removes what this extraction created below `dirfd`, deepest first; folders are entered without
  // following links. Best effort: what cannot be removed stays.
  static void undo(int dirfd, const Target& folder) noexcept {
    for (auto it = folder.children.rbegin(); it != folder.children.rend(); ++it) {
      const Target& target = *it;
      if (!target.file) {
        const UniqueFd sub(::openat(dirfd, target.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (sub) undo(sub.get(), target);
      }
      if (target.made) (void)::unlinkat(dirfd, target.name.c_str(), target.file ? 0 : AT_REMOVEDIR);
      target.made = false;
    }
  }


  // Reads the file's stored bytes and leaves the rest, creating the file included (the kernel's
  // share of the work), to a worker.
  void startFile(const std::shared_ptr<const UniqueFd>& dir, const Target& target) {
    auto job = std::make_shared<Job>();
    job->target = &target;
    job->folder = dir;
    job->replace = replace_;
    const zippackage::ZipEntry& entry = *target.entry;
    job->deflated = entry.compressionMethod == 8;
    job->crc = entry.crc;
    job->stored.resize(static_cast<std::size_t>(entry.compressedSize));
    std::unique_ptr<InputStream> in = package_.getPhysicalPackage().openRawEntry(entry.index);
    std::size_t filled = 0;
    while (filled < job->stored.size()) {
      const std::size_t n = in->read(job->stored.data() + filled, job->stored.size() - filled);
      if (n == 0) break;
      filled += n;
    }
    if (filled != job->stored.size()) refuse(target.partName(), "its compressed data ends early");
    job->cost = job->stored.size() + (job->deflated ? target.size : 0);
    workers_.submit(std::move(job));
  }

  static UniqueFd openFolder(int dirfd, const Target& target) {
    UniqueFd fd(::openat(dirfd, target.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) refuse(target.partName(), osError("cannot open the folder", target.path, errno));
    return fd;
  }

  void writeFile(int dirfd, const Target& target) const {
    UniqueFd fd = createFile(dirfd, target, replace_);

    std::unique_ptr<InputStream> in = target.part->getInputStream();
    std::vector<std::uint8_t> buffer(kCopyBuffer);
    std::uint64_t written = 0;
    for (;;) {
      const std::size_t n = in->read(buffer.data(), buffer.size());
      if (n == 0) break;
      written += n;
      if (written > target.size) {
        refuse(target.partName(), "it inflates to more than its declared " + std::to_string(target.size) + " bytes");
      }
      opc::detail::writeAll(fd.get(), buffer.data(), n, target.path);
    }
    checkLength(target, written);
    finishFile(target, fd);
  }

  model::Package& package_;
  RestoreMode restore_;
  TransformMode transform_;
  ReplaceMode replace_;
  std::unordered_map<ustring, const zippackage::ZipEntry*> zipEntries_;
  std::uint64_t total_ = 0;
  Workers workers_;
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
  Target top;
  extraction.plan(root, top);

  const std::string dest = opc::detail::toUtf8(destination, "destination folder");
  if (dest.empty()) throw Exception("no destination folder given");
  struct stat st {};
  if (::stat(dest.c_str(), &st) == 0) {
    if (!S_ISDIR(st.st_mode)) throw Exception("cannot extract to '" + dest + "': it is not a folder");
    UniqueFd fd(::open(dest.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) throw Exception(osError("cannot open the destination", dest, errno));
    extraction.checkExisting(fd.get(), top);
  }
  checkFreeSpace(dest, extraction.total());

  // Checks passed: from here on, files are written.
  LocalFileSystemOps().createDirectories(destination);
  UniqueFd fd(::open(dest.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) throw Exception(osError("cannot open the destination", dest, errno));
  extraction.writeAll(fd.get(), top);
}

}  // namespace opc::kqservices
