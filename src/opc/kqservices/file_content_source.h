#pragma once
// A part's content taken from a file on disk.
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/ustring.h"
#include "opc/content_source.h"
#include "opc/file_system_ops.h"

namespace opc::kqservices {

// The bytes of one file, read when asked and never held in memory: a part given this source is
// streamed from the file when the package is written. Throws opc::Exception (naming the path) when
// the file is missing or no regular file now, or cannot be opened later. Its size is the one seen now.
[[nodiscard]] std::shared_ptr<const ContentSource> fileContent(const ustring& path);

// The content of many files on disk, as sources that share one table of their paths: a folder's
// path is kept once for the run of files added from it, a file's name and source in about fifty
// bytes, where a source of its own costs a block for the object and one for the path. Each source
// handed out keeps the whole batch alive. add() runs on one thread and never while a source of the
// batch is being read; reading (openStream) may run on several threads at once.
class FileContentBatch : public std::enable_shared_from_this<FileContentBatch> {
 public:
  struct Added {
    std::shared_ptr<const ContentSource> source;
    FileStatus status;  // as seen now; the source's size is this one
  };
  // Checks the file at `path` as fileContent does (same errors) and returns its source.
  [[nodiscard]] Added add(const ustring& path);

 private:
  class Source final : public ContentSource {
   public:
    Source(const FileContentBatch& batch, std::uint32_t folder, std::string_view name, std::uint64_t size)
        : batch_(&batch), name_(name.data()), length_(static_cast<std::uint32_t>(name.size())), folder_(folder),
          size_(size) {}
    [[nodiscard]] std::unique_ptr<InputStream> openStream() const override;
    [[nodiscard]] std::optional<std::uint64_t> size() const override { return size_; }

   private:
    const FileContentBatch* batch_;
    const char* name_;       // in names_, length_ bytes
    std::uint32_t length_;   // a file name is far shorter
    std::uint32_t folder_;   // in folders_
    std::uint64_t size_;
  };
  // One a file added: the budget of building 70,000 entries below 100 MB of peak memory holds them
  // all until the package is written.
  static_assert(sizeof(Source) == 40);
  static constexpr std::size_t kChunk = 64u << 10;

  std::vector<std::string> folders_;             // UTF-8, '/' last; "" for a path without one
  std::vector<std::unique_ptr<char[]>> names_;   // chunks of file names, never moved
  std::size_t chunkUsed_ = kChunk;               // in names_.back()
  std::deque<Source> sources_;                   // never moved: the shared pointers handed out point in here
};

}  // namespace opc::kqservices
