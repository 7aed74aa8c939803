// FileSystemManager::extractAll: plan every target, check it all, then write through descriptors.
// The calling thread makes the folders and hands each folder's files to workers in batches; a worker
// reads a file's entry through the package's entry reader (which checks it) and creates and writes
// the file, so the kernel's file creation (most of the time) and inflating run in several folders at
// once. Parts the workers cannot take (replaced in this session) stream through the package on the
// calling thread.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/detail/work_queue.h"
#include "opc/kqservices/file_system_manager.h"
#include "opc/kqservices/file_system_names.h"
#include "opc/kqservices/file_system_tree.h"
#include "opc/model/package.h"
#include "opc/zippackage/zip_physical_package.h"

namespace opc::kqservices {

namespace {

using opc::detail::narrow;
using opc::detail::osError;
using opc::detail::UniqueFd;
using detail::TreeNode;

// Files up to this size are read, checked and written whole by a worker, created only once their
// bytes have passed the checks; larger ones stream through it, so that a worker holds about half a
// megabyte whatever the part sizes. Most files of an add-on are far smaller.
constexpr std::uint64_t kWholeFileLimit = 256u << 10;
constexpr std::size_t kCopyBuffer = 256u << 10;
// Files of one folder handed to a worker at a time: enough to make a batch worth its queueing,
// few enough that a large folder is still spread over every worker.
constexpr std::uint32_t kBatchFiles = 32;
// Batches queued at one time; each holds its folder's descriptor open.
constexpr std::size_t kQueuedBatches = 64;
constexpr std::uint32_t kNone = 0xffffffffu;

// One file or folder to write; the plan holds them with each folder's children side by side.
// A few dozen bytes each: names live in one shared buffer, the path and part name are made only
// for messages.
struct Item {
  const TreeNode* node = nullptr;
  std::uint64_t size = 0;           // files: declared
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
[[nodiscard]] ustring partNameOf(const Item& item) { return item.node->partName(); }

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

// A worker's buffers, reused for every file it writes.
struct Buffers {
  std::vector<std::uint8_t> bytes;
  std::vector<std::uint8_t> scratch;
};

class Extraction {
 public:
  Extraction(model::Package& package, RestoreMode restore, TransformMode transform, ReplaceMode replace)
      : package_(package),
        physical_(package.getPhysicalPackage()),
        restore_(restore),
        transform_(transform),
        replace_(replace) {}

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
    try {
      opc::detail::WorkQueue workers(opc::detail::workerThreads(), kQueuedBatches);
      buffers_.resize(workers.slots());
      write(workers, std::make_shared<const UniqueFd>(::fcntl(root, F_DUPFD_CLOEXEC, 0)), plan_.items[0]);
      workers.finish();
    } catch (...) {
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
      item.entry = directEntry(*part);
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

  // The ZIP entry a worker reads for the part, or kNone: the entry that still holds the part's
  // content. An entry that cannot be as its record says is refused before anything is written.
  [[nodiscard]] std::uint32_t directEntry(const model::Part& part) const {
    const std::optional<std::uint64_t> entry = part.getDirectoryIndex();
    if (!entry) return kNone;
    if (const std::string defect = physical_.entryDefect(*entry); !defect.empty()) refuse(part.getPartName().getName(), defect);
    return static_cast<std::uint32_t>(*entry);
  }

  // Reads, checks and writes one file from its entry below `dirfd`. A whole file is created only once
  // its bytes have passed the checks; a streamed one is created first, and a defect found on the way
  // leaves it for the caller's undo.
  void writeDirect(int dirfd, const Item& item, Buffers& buffers) const {
    if (!item.file || item.entry == kNone) return;
    if (item.size > kWholeFileLimit) {
      copyToFile(dirfd, item, [&] { return physical_.openEntry(item.entry); }, buffers.bytes);
      return;
    }
    try {
      physical_.readEntry(item.entry, buffers.bytes, buffers.scratch);
    } catch (const Exception& e) {
      refuse(partNameOf(item), e.what());
    }
    UniqueFd fd = createFile(dirfd, plan_, item, replace_);
    opc::detail::pwriteAll(fd.get(), buffers.bytes.data(), buffers.bytes.size(), 0, plan_.pathOf(item));
    finishFile(plan_, item, fd);
  }

  // Creates the file and copies into it the stream `open` gives, refusing more bytes than declared
  // as they come, and fewer at the end.
  template <class Open>
  void copyToFile(int dirfd, const Item& item, const Open& open, std::vector<std::uint8_t>& buffer) const {
    UniqueFd fd = createFile(dirfd, plan_, item, replace_);
    buffer.resize(kCopyBuffer);
    std::unique_ptr<InputStream> in;
    std::uint64_t written = 0;
    for (;;) {
      std::size_t n = 0;
      try {
        if (!in) in = open();
        n = in->read(buffer.data(), buffer.size());
      } catch (const Exception& e) {
        refuse(partNameOf(item), e.what());
      }
      if (n == 0) break;
      written += n;
      if (written > item.size) {
        refuse(partNameOf(item), "it inflates to more than its declared " + std::to_string(item.size) + " bytes");
      }
      opc::detail::pwriteAll(fd.get(), buffer.data(), n, written - n, plan_.pathOf(item));
    }
    if (written != item.size) {
      refuse(partNameOf(item), "it holds " + std::to_string(written) + " bytes, not its declared " + std::to_string(item.size));
    }
    finishFile(plan_, item, fd);
  }

  // Writes the children of `folder` below `dir`: the entries workers read go to them in batches
  // (still in progress on return; the batches keep `dir` open), the rest is written here, then each
  // subfolder is made and entered.
  void write(opc::detail::WorkQueue& workers, const std::shared_ptr<const UniqueFd>& dir, const Item& folder) {
    if (!*dir) throw Exception(osError("cannot open the destination", "", errno));
    const int dirfd = dir->get();
    const std::uint32_t last = folder.first + folder.count;
    std::uint32_t batchStart = 0;
    std::uint32_t inBatch = 0;
    const auto flush = [&](std::uint32_t end) {
      if (inBatch == 0) return;
      (void)workers.submit([this, dir, first = batchStart, end](unsigned worker) {
        for (std::uint32_t i = first; i < end; ++i) writeDirect(dir->get(), plan_.items[i], buffers_[worker]);
      });
      inBatch = 0;
    };
    for (std::uint32_t i = folder.first; i < last; ++i) {
      const Item& item = plan_.items[i];
      if (!item.file) continue;
      if (item.entry == kNone) {  // not in the workers' batch, which skips it
        std::vector<std::uint8_t> buffer;
        copyToFile(dirfd, item, [&] { return package_.getPart(model::PartName(partNameOf(item)))->getInputStream(); }, buffer);
        continue;
      }
      if (inBatch == 0) batchStart = i;
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

  model::Package& package_;
  const zippackage::ZipPhysicalPackage& physical_;
  RestoreMode restore_;
  TransformMode transform_;
  ReplaceMode replace_;
  Plan plan_;
  std::vector<Buffers> buffers_;  // one a worker
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
  FileSystemOps().createDirectories(destination);
  UniqueFd fd(::open(dest.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) throw Exception(osError("cannot open the destination", dest, errno));
  extraction.writeAll(fd.get());
}

}  // namespace opc::kqservices
