#include "opc/detail/fd.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "opc/exception.h"

namespace opc::detail {

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.release();
  }
  return *this;
}

UniqueFd::~UniqueFd() {
  if (fd_ >= 0) ::close(fd_);
}

std::string UniqueFd::close() {
  if (fd_ < 0) return {};
  const int rc = ::close(release());
  return rc == 0 ? std::string() : std::string(std::strerror(errno));
}

std::string osError(std::string_view what, std::string_view path, int err) {
  return std::string(what) + " '" + std::string(path) + "': " + std::strerror(err);
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::size_t FdInputStream::read(std::uint8_t* buffer, std::size_t size) {
  for (;;) {
    const ssize_t n = ::read(fd_.get(), buffer, size);
    if (n >= 0) return static_cast<std::size_t>(n);
    if (errno != EINTR) throw Exception(osError("cannot read", path_, errno));
  }
}

void pwriteAll(int fd, const std::uint8_t* data, std::size_t size, std::uint64_t offset, std::string_view path) {
  while (size > 0) {
    const ssize_t n = ::pwrite(fd, data, size, static_cast<off_t>(offset));
    if (n < 0) {
      if (errno == EINTR) continue;
      throw Exception(osError("cannot write", path, errno));
    }
    data += n;
    offset += static_cast<std::uint64_t>(n);
    size -= static_cast<std::size_t>(n);
  }
}

std::size_t preadSome(int fd, std::uint8_t* data, std::size_t size, std::uint64_t offset, std::string_view path) {
  for (;;) {
    const ssize_t n = ::pread(fd, data, size, static_cast<off_t>(offset));
    if (n >= 0) return static_cast<std::size_t>(n);
    if (errno != EINTR) throw Exception(osError("cannot read", path, errno));
  }
}

std::size_t preadFull(int fd, void* into, std::size_t size, std::uint64_t offset, std::string_view path) {
  std::size_t got = 0;
  while (got < size) {
    const std::size_t n = preadSome(fd, static_cast<std::uint8_t*>(into) + got, size - got, offset + got, path);
    if (n == 0) break;
    got += n;
  }
  return got;
}

void WriteBehind::written(std::uint64_t end, bool force) {
  if (end <= posted_ || (!force && end - posted_ < kWriteBehind)) return;
  posted_ = end;
  target_ = end;
  // One hand() waiting covers every step posted before it starts.
  if (!queued_.exchange(true)) (void)worker_.submit([this](unsigned) { hand(); });
}

void WriteBehind::hand() {
  queued_ = false;
  const std::uint64_t to = target_;
  if (to <= handed_) return;
  (void)::sync_file_range(fd_, static_cast<off_t>(handed_), static_cast<off_t>(to - handed_), SYNC_FILE_RANGE_WRITE);
  handed_ = to;
}

WriteBehind::~WriteBehind() {
  try {
    worker_.finish();
  } catch (...) {  // hand() throws nothing
  }
}

}  // namespace opc::detail
