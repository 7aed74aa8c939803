// FileSystemManager::extractAll: plan every target, check it all, then write through descriptors.
#include <cerrno>
#include <fcntl.h>
#include <optional>
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

// One file or folder to write.
struct Target {
  std::string name;  // UTF-8 file name in its folder
  std::string path;  // relative to the destination, for messages
  ustring partName;  // for messages: the part (or, for a folder made by its files, the folder's name)
  bool file = false;
  model::PartPtr part;
  std::uint64_t size = 0;
  std::optional<FileTime> time;
  std::optional<std::uint32_t> mode;
  std::vector<Target> children;
};

[[noreturn]] void refuse(const ustring& partName, const std::string& why) {
  throw Exception("refusing to extract '" + narrow(partName) + "': " + why);
}

class Extraction {
 public:
  Extraction(model::Package& package, RestoreMode restore, TransformMode transform, ReplaceMode replace)
      : package_(package), restore_(restore), transform_(transform), replace_(replace) {
    indexZipEntries();
  }

  // Builds the targets below `folder` and checks everything that needs no disk.
  void plan(const TreeNode& folder, Target& into) {
    std::unordered_map<std::string, const TreeNode*> seen;
    for (const TreeNode* node : folder.sortedChildren()) {
      Target target;
      target.partName = FileSystemManager::getPrefix() + node->encodedPath();
      const ustring name = transform_ == TransformMode::Encode ? node->name : node->segment;
      if (const char* defect = detail::componentDefect(name)) refuse(target.partName, defect);
      target.name = opc::detail::toUtf8(name, "file name of part '" + narrow(target.partName) + "'");
      target.path = into.path.empty() ? target.name : into.path + '/' + target.name;
      if (const auto [it, fresh] = seen.emplace(target.name, node); !fresh) {
        refuse(target.partName, "it would be written to '" + target.path + "' like '" +
                                    narrow(FileSystemManager::getPrefix() + it->second->encodedPath()) + "'");
      }
      if (node->file) {
        target.file = true;
        target.part = package_.getPart(model::PartName(target.partName));
        target.size = target.part->getSize();
        checkDeclaredSize(*target.part, target.size);
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
        refuse(target.partName, osError("cannot examine", target.path, errno));
      }
      if (target.file) {
        if (S_ISDIR(st.st_mode)) refuse(target.partName, "'" + target.path + "' is a folder in the destination");
        if (replace_ == ReplaceMode::Never) refuse(target.partName, "'" + target.path + "' exists in the destination");
        continue;
      }
      if (S_ISLNK(st.st_mode)) refuse(target.partName, "'" + target.path + "' is a symbolic link in the destination");
      if (!S_ISDIR(st.st_mode)) refuse(target.partName, "'" + target.path + "' is a file in the destination");
      const UniqueFd sub = openFolder(dirfd, target);
      checkExisting(sub.get(), target);
    }
  }

  // Writes the targets below `dirfd`. On failure removes what it created here (deeper levels have
  // already cleaned up after themselves) and rethrows.
  void write(int dirfd, const Target& folder) const {
    std::vector<const Target*> created;
    try {
      for (const Target& target : folder.children) {
        if (target.file) {
          writeFile(dirfd, target, created);
          continue;
        }
        if (::mkdirat(dirfd, target.name.c_str(), 0777) == 0) {
          created.push_back(&target);
        } else if (errno != EEXIST) {
          refuse(target.partName, osError("cannot create the folder", target.path, errno));
        }
        const UniqueFd sub = openFolder(dirfd, target);
        write(sub.get(), target);
      }
    } catch (...) {
      for (auto it = created.rbegin(); it != created.rend(); ++it) {
        (void)::unlinkat(dirfd, (*it)->name.c_str(), (*it)->file ? 0 : AT_REMOVEDIR);
      }
      throw;
    }
  }

 private:
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

  static UniqueFd openFolder(int dirfd, const Target& target) {
    UniqueFd fd(::openat(dirfd, target.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!fd) refuse(target.partName, osError("cannot open the folder", target.path, errno));
    return fd;
  }

  void writeFile(int dirfd, const Target& target, std::vector<const Target*>& created) const {
    if (replace_ == ReplaceMode::Replace && ::unlinkat(dirfd, target.name.c_str(), 0) != 0 && errno != ENOENT) {
      refuse(target.partName, osError("cannot replace", target.path, errno));
    }
    const mode_t mode = target.mode ? static_cast<mode_t>(*target.mode & 0777) : 0666;
    // O_EXCL with O_NOFOLLOW: a link planted since the check makes this fail instead of being followed.
    UniqueFd fd(::openat(dirfd, target.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (!fd) refuse(target.partName, osError("cannot create", target.path, errno));
    created.push_back(&target);

    std::unique_ptr<InputStream> in = target.part->getInputStream();
    std::vector<std::uint8_t> buffer(kCopyBuffer);
    std::uint64_t written = 0;
    for (;;) {
      const std::size_t n = in->read(buffer.data(), buffer.size());
      if (n == 0) break;
      written += n;
      if (written > target.size) {
        refuse(target.partName, "it inflates to more than its declared " + std::to_string(target.size) + " bytes");
      }
      opc::detail::writeAll(fd.get(), buffer.data(), n, target.path);
    }
    if (written != target.size) {
      refuse(target.partName, "it holds " + std::to_string(written) + " bytes, not its declared " +
                                  std::to_string(target.size));
    }
    if (target.time) {
      const struct timespec times[2] = {{0, UTIME_OMIT},
                                        {static_cast<time_t>(target.time->seconds),
                                         static_cast<long>(target.time->nanoseconds)}};
      if (::futimens(fd.get(), times) != 0) {
        refuse(target.partName, osError("cannot set the modification time of", target.path, errno));
      }
    }
    if (const std::string error = fd.close(); !error.empty()) {
      refuse(target.partName, "cannot write '" + target.path + "': " + error);
    }
  }

  model::Package& package_;
  RestoreMode restore_;
  TransformMode transform_;
  ReplaceMode replace_;
  std::unordered_map<ustring, const zippackage::ZipEntry*> zipEntries_;
  std::uint64_t total_ = 0;
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
  extraction.write(fd.get(), top);
}

}  // namespace opc::kqservices
