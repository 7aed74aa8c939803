#include "opc/file_system_ops.h"

#include <cerrno>
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

FileStatus FileSystemOps::status(const ustring& path, bool followLinks) const {
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

void FileSystemOps::createDirectories(const ustring& path) const {
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

std::unique_ptr<InputStream> FileSystemOps::openInputStream(const ustring& path) const {
  const std::string p = toPath(path);
  detail::UniqueFd fd(::open(p.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) throw Exception(detail::osError("cannot open", p, errno));
  return std::make_unique<detail::FdInputStream>(std::move(fd), p);
}

}  // namespace opc
