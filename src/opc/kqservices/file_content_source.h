#pragma once
// A part's content taken from a file on disk.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "foundation/ustring.h"
#include "opc/content_source.h"
#include "opc/file_system_ops.h"

namespace opc::kqservices {

// The bytes of one file, read when asked and never held in memory: a part given this source is
// streamed from the file when the package is written. Throws opc::Exception (naming the path) when
// the file is missing or no regular file on construction, or cannot be opened later. The status
// (size, modification time, mode) is the one seen on construction.
class FileContentSource : public ContentSource {
 public:
  explicit FileContentSource(const ustring& path,
                             std::shared_ptr<FileSystemOps> fileSystem = std::make_shared<LocalFileSystemOps>());

  [[nodiscard]] std::unique_ptr<InputStream> getInputStream() const { return openStream(); }
  [[nodiscard]] std::unique_ptr<InputStream> openStream() const override;
  [[nodiscard]] std::optional<std::uint64_t> size() const override { return status_.size; }

  [[nodiscard]] const FileStatus& getStatus() const { return status_; }

 private:
  std::string path_;  // UTF-8: half the size of the text for the usual paths, and a build holds one a file
  std::shared_ptr<FileSystemOps> fileSystem_;
  FileStatus status_;
};

}  // namespace opc::kqservices
