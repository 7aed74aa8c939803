#pragma once
// POSIX file descriptors owned by scope, and streams over them.
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "opc/detail/work_queue.h"
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
// The folder of a file's path: "." for a bare name, "/" for a file in the root.
[[nodiscard]] std::string folderOf(const std::string& path);

// Reads a file from its start (or from `offset` with pread, so several streams may share one file).
class FdInputStream : public InputStream {
 public:
  FdInputStream(UniqueFd fd, std::string path) : fd_(std::move(fd)), path_(std::move(path)) {}
  [[nodiscard]] std::size_t read(std::uint8_t* buffer, std::size_t size) override;

 private:
  UniqueFd fd_;
  std::string path_;
};

// Full pwrite/pread with EINTR handling; throw opc::Exception naming `path`.
void pwriteAll(int fd, const std::uint8_t* data, std::size_t size, std::uint64_t offset, std::string_view path);
[[nodiscard]] std::size_t preadSome(int fd, std::uint8_t* data, std::size_t size, std::uint64_t offset,
                                    std::string_view path);
// Reads `size` bytes at `offset`, fewer only where the file ends.
[[nodiscard]] std::size_t preadFull(int fd, void* into, std::size_t size, std::uint64_t offset, std::string_view path);

// Writes behind a growing file: the bytes written so far are handed to the disk in steps of
// kWriteBehind by a worker of its own, so that the writer goes on meanwhile and the sync before a
// rename finds little left to write. A hint that never fails. Destruction waits until every step has
// been handed (not for the disk).
inline constexpr std::uint64_t kWriteBehind = 32u << 20;
class WriteBehind {
 public:
  explicit WriteBehind(int fd, std::uint64_t start = 0) : fd_(fd), posted_(start), target_(start), handed_(start) {}
  ~WriteBehind();
  WriteBehind(const WriteBehind&) = delete;
  WriteBehind& operator=(const WriteBehind&) = delete;
  // The bytes before `end` are written; `force` hands them even if fewer than a step.
  void written(std::uint64_t end, bool force = false);

 private:
  void hand();
  int fd_;
  std::uint64_t posted_;                 // the writer's side: handed up to here
  std::atomic<std::uint64_t> target_;    // hand up to here
  std::uint64_t handed_;                 // the worker's side
  std::atomic<bool> queued_{false};      // a hand() waits to start
  WorkQueue worker_{1, 1};
};

}  // namespace opc::detail
