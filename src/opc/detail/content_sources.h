#pragma once
// Content sources the package model makes for itself.
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "opc/content_source.h"
#include "opc/detail/fd.h"

namespace opc::detail {

// A new file in `folder` for reading and writing, of `mode` less the umask: unnamed (O_TMPFILE), or
// where the file system has no unnamed files, named after `pattern` (whose "XXXXXX" is made unique and
// followed by `suffixLength` characters), that name then stored in `*name`, or unlinked at once when
// `name` is null. Throws opc::Exception naming the folder.
[[nodiscard]] UniqueFd createTemporaryFile(const std::string& folder, unsigned mode, std::string pattern,
                                           int suffixLength, std::string* name);

// Reads bytes that outlive it.
class BytesInputStream : public InputStream {
 public:
  explicit BytesInputStream(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
  [[nodiscard]] std::size_t read(std::uint8_t* buffer, std::size_t size) override;

 private:
  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

// Bytes held in memory (the XML the model writes: content types, relationships).
class MemoryContentSource : public ContentSource {
 public:
  explicit MemoryContentSource(std::string bytes) : bytes_(std::make_shared<const std::string>(std::move(bytes))) {}
  [[nodiscard]] std::unique_ptr<InputStream> openStream() const override;
  [[nodiscard]] std::optional<std::uint64_t> size() const override { return bytes_->size(); }

 private:
  std::shared_ptr<const std::string> bytes_;
};

// Content written through a part's output stream, or the writer's central directory: kept in memory
// up to `memoryLimit` bytes, then moved to an unnamed temporary file in `folder` (gone when the last
// holder lets go, even after a kill) in writes of up to that many bytes, so a large part never lives
// in memory and small appends cost few system calls. Streams opened on it read what was appended
// before each read. Not thread-safe.
class SpoolContent : public ContentSource, public std::enable_shared_from_this<SpoolContent> {
 public:
  static constexpr std::size_t kDefaultMemoryLimit = 1u << 20;
  SpoolContent(std::string folder, std::size_t memoryLimit = kDefaultMemoryLimit)
      : folder_(std::move(folder)), memoryLimit_(memoryLimit) {}

  void append(const std::uint8_t* data, std::size_t size);
  [[nodiscard]] std::unique_ptr<InputStream> openStream() const override;
  [[nodiscard]] std::optional<std::uint64_t> size() const override { return size_; }

  // Reads up to `size` bytes at `offset`; 0 at the end.
  [[nodiscard]] std::size_t readAt(std::uint64_t offset, std::uint8_t* out, std::size_t size) const;

 private:
  std::string folder_;
  std::size_t memoryLimit_;
  std::vector<std::uint8_t> memory_;  // the bytes [inFile_, size_), not yet in the file
  UniqueFd file_;
  std::uint64_t inFile_ = 0;
  std::uint64_t size_ = 0;
};

}  // namespace opc::detail
