#pragma once
// POSIX file descriptors owned by scope, and streams over them.
#include <cstdint>
#include <string>
#include <string_view>

#include "opc/streams.h"

namespace opc::detail {

// Closes on destruction; movable.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept;
  ~UniqueFd();
  [[nodiscard]] int get() const { return fd_; }
  [[nodiscard]] explicit operator bool() const { return fd_ >= 0; }
  int release() noexcept {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  // Closes and reports the error of close() (a delayed write error), as errno text or "".
  std::string close();

 private:
  int fd_ = -1;
};

// "<what> '<path>': <strerror(err)>".
[[nodiscard]] std::string osError(std::string_view what, std::string_view path, int err);

// Reads a file from its start (or from `offset` with pread, so several streams may share one file).
class FdInputStream : public InputStream {
 public:
  FdInputStream(UniqueFd fd, std::string path) : fd_(std::move(fd)), path_(std::move(path)) {}
  [[nodiscard]] std::size_t read(std::uint8_t* buffer, std::size_t size) override;

 private:
  UniqueFd fd_;
  std::string path_;
};

class FdOutputStream : public OutputStream {
 public:
  FdOutputStream(UniqueFd fd, std::string path) : fd_(std::move(fd)), path_(std::move(path)) {}
  ~FdOutputStream() override;
  void write(const std::uint8_t* data, std::size_t size) override;
  void flush() override {}

 private:
  UniqueFd fd_;
  std::string path_;
};

// Full pwrite/pread with EINTR handling; throw opc::Exception naming `path`.
void writeAll(int fd, const std::uint8_t* data, std::size_t size, std::string_view path);
void pwriteAll(int fd, const std::uint8_t* data, std::size_t size, std::uint64_t offset, std::string_view path);
[[nodiscard]] std::size_t preadSome(int fd, std::uint8_t* data, std::size_t size, std::uint64_t offset,
                                    std::string_view path);

// Writes behind a growing file: once `end` is kWriteBehind bytes past `handed`, hands
// [handed, end) to the disk without waiting for it and moves `handed` to `end` (`force` hands any
// rest). A hint that never fails: the sync before a rename then finds little left to write, so the
// disk's writing overlaps the making of the file instead of following it.
inline constexpr std::uint64_t kWriteBehind = 32u << 20;
void writeBehind(int fd, std::uint64_t& handed, std::uint64_t end, bool force = false);

}  // namespace opc::detail
