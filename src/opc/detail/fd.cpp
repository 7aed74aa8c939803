#include "opc/detail/fd.h"

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>
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

std::size_t FdInputStream::read(std::uint8_t* buffer, std::size_t size) {
  for (;;) {
    const ssize_t n = ::read(fd_.get(), buffer, size);
    if (n >= 0) return static_cast<std::size_t>(n);
    if (errno != EINTR) throw Exception(osError("cannot read", path_, errno));
  }
}

FdOutputStream::~FdOutputStream() = default;

void FdOutputStream::write(const std::uint8_t* data, std::size_t size) {
  writeAll(fd_.get(), data, size, path_);
}

void writeAll(int fd, const std::uint8_t* data, std::size_t size, std::string_view path) {
  while (size > 0) {
    const ssize_t n = ::write(fd, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      throw Exception(osError("cannot write", path, errno));
    }
    data += n;
    size -= static_cast<std::size_t>(n);
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

void WriteBehind::written(std::uint64_t end, bool force) {
  if (end <= posted_ || (!force && end - posted_ < kWriteBehind)) return;
  posted_ = end;
  {
    const std::lock_guard lock(mutex_);
    target_ = end;
  }
  if (!thread_.joinable() && !unthreaded_) {
    try {
      thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
      unthreaded_ = true;
    }
  }
  if (unthreaded_) {  // no thread to spare: hand the bytes here
    const std::uint64_t from = std::exchange(handed_, end);
    (void)::sync_file_range(fd_, static_cast<off_t>(from), static_cast<off_t>(end - from), SYNC_FILE_RANGE_WRITE);
    return;
  }
  wake_.notify_one();
}

void WriteBehind::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    if (target_ > handed_) {
      const std::uint64_t from = handed_;
      const std::uint64_t to = target_;
      handed_ = to;
      lock.unlock();
      (void)::sync_file_range(fd_, static_cast<off_t>(from), static_cast<off_t>(to - from), SYNC_FILE_RANGE_WRITE);
      lock.lock();
      continue;
    }
    if (stop_) return;
    wake_.wait(lock);
  }
}

WriteBehind::~WriteBehind() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
  thread_.join();
}

}  // namespace opc::detail
