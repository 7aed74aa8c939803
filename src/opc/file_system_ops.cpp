#include "opc/file_system_ops.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc {

namespace {

std::size_t lastComponentEnd(const ustring& path) {
  std::size_t end = path.size();
  while (end > 1 && path[end - 1] == u'/') --end;
  return end;
}

std::string toPath(const ustring& path) {
  return detail::toUtf8(path, "path");
}

struct DirCloser {
  void operator()(DIR* d) const noexcept { ::closedir(d); }
};

}  // namespace

ustring FileSystemOps::getFilename(const ustring& path) const {
  const std::size_t end = lastComponentEnd(path);
  const std::size_t slash = path.rfind(u'/', end == 0 ? 0 : end - 1);
  const std::size_t begin = slash == ustring::npos ? 0 : slash + 1;
  if (begin >= end) return {};
  return path.substr(begin, end - begin);
}

ustring FileSystemOps::getExtension(const ustring& path) const {
  const ustring name = getFilename(path);
  const std::size_t dot = name.rfind(u'.');
  if (dot == ustring::npos || dot == 0) return {};
  return name.substr(dot + 1);
}

ustring FileSystemOps::getParentPath(const ustring& path) const {
  const std::size_t end = lastComponentEnd(path);
  const std::size_t slash = path.rfind(u'/', end == 0 ? 0 : end - 1);
  if (slash == ustring::npos) return {};
  std::size_t parentEnd = slash;
  while (parentEnd > 1 && path[parentEnd - 1] == u'/') --parentEnd;
  if (parentEnd == 0) return u"/";
  return path.substr(0, parentEnd);
}

std::uint64_t FileSystemOps::getFileSize(const ustring& path) const {
  const FileStatus s = status(path);
  if (s.type == FileType::NotFound) throw Exception("file not found: '" + detail::narrow(path) + "'");
  return s.size;
}

FileTime FileSystemOps::getLastWriteTime(const ustring& path) const {
  const FileStatus s = status(path);
  if (s.type == FileType::NotFound) throw Exception("file not found: '" + detail::narrow(path) + "'");
  return s.lastWriteTime;
}

FileStatus LocalFileSystemOps::status(const ustring& path, bool followLinks) const {
  const std::string p = toPath(path);
  struct stat st {};
  const int rc = followLinks ? ::stat(p.c_str(), &st) : ::lstat(p.c_str(), &st);
  FileStatus out;
  if (rc != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return out;
    throw Exception(detail::osError("cannot query", p, errno));
  }
  if (S_ISREG(st.st_mode)) {
    out.type = FileType::Regular;
    out.size = static_cast<std::uint64_t>(st.st_size);
  } else if (S_ISDIR(st.st_mode)) {
    out.type = FileType::Directory;
  } else if (S_ISLNK(st.st_mode)) {
    out.type = FileType::Symlink;
  } else {
    out.type = FileType::Other;
  }
  out.lastWriteTime = FileTime{static_cast<std::int64_t>(st.st_mtim.tv_sec),
                               static_cast<std::uint32_t>(st.st_mtim.tv_nsec)};
  out.mode = static_cast<std::uint32_t>(st.st_mode & 07777);
  return out;
}

void LocalFileSystemOps::setLastWriteTime(const ustring& path, FileTime time) const {
  const std::string p = toPath(path);
  struct timespec times[2];
  times[0].tv_sec = 0;
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = static_cast<time_t>(time.seconds);
  times[1].tv_nsec = static_cast<long>(time.nanoseconds);
  if (::utimensat(AT_FDCWD, p.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
    throw Exception(detail::osError("cannot set the modification time of", p, errno));
  }
}

void LocalFileSystemOps::setPermissions(const ustring& path, std::uint32_t mode) const {
  const std::string p = toPath(path);
  if (::chmod(p.c_str(), static_cast<mode_t>(mode & 07777)) != 0) {
    throw Exception(detail::osError("cannot set the permissions of", p, errno));
  }
}

std::vector<ustring> LocalFileSystemOps::listDirectory(const ustring& path) const {
  const std::string p = toPath(path);
  std::unique_ptr<DIR, DirCloser> dir(::opendir(p.c_str()));
  if (!dir) throw Exception(detail::osError("cannot list", p, errno));
  std::vector<ustring> names;
  errno = 0;
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") names.push_back(detail::fromUtf8(name, "file name in '" + p + "'"));
    errno = 0;
  }
  if (errno != 0) throw Exception(detail::osError("cannot list", p, errno));
  std::sort(names.begin(), names.end());
  return names;
}

void LocalFileSystemOps::createDirectories(const ustring& path) const {
  const std::string p = toPath(path);
  std::size_t pos = 0;
  for (;;) {
    pos = p.find('/', pos + 1);
    const std::string prefix = p.substr(0, pos);
    if (!prefix.empty() && ::mkdir(prefix.c_str(), 0777) != 0 && errno != EEXIST) {
      throw Exception(detail::osError("cannot create the folder", prefix, errno));
    }
    if (pos == std::string::npos) break;
  }
  struct stat st {};
  if (::stat(p.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    throw Exception("cannot create the folder '" + p + "': a file of that name exists");
  }
}

void LocalFileSystemOps::remove(const ustring& path) const {
  const std::string p = toPath(path);
  if (::remove(p.c_str()) != 0 && errno != ENOENT) throw Exception(detail::osError("cannot remove", p, errno));
}

std::unique_ptr<InputStream> LocalFileSystemOps::openInputStream(const ustring& path) const {
  const std::string p = toPath(path);
  detail::UniqueFd fd(::open(p.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) throw Exception(detail::osError("cannot open", p, errno));
  return std::make_unique<detail::FdInputStream>(std::move(fd), p);
}

std::unique_ptr<OutputStream> LocalFileSystemOps::openOutputStream(const ustring& path) const {
  const std::string p = toPath(path);
  detail::UniqueFd fd(::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!fd) throw Exception(detail::osError("cannot create", p, errno));
  return std::make_unique<detail::FdOutputStream>(std::move(fd), p);
}

FileSystemOpsSelector::FileSystemOpsSelector() : ops_(std::make_shared<LocalFileSystemOps>()) {}

FileSystemOpsSelector::FileSystemOpsSelector(std::shared_ptr<FileSystemOps> ops) : ops_(std::move(ops)) {
  if (!ops_) throw Exception("FileSystemOpsSelector: no file-system operations given");
}

}  // namespace opc
