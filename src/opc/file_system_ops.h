#pragma once
// The file-system operations the managers built on the package model use.
#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/ustring.h"
#include "opc/file_time.h"
#include "opc/streams.h"

namespace opc {

enum class FileType { NotFound, Regular, Directory, Symlink, Other };

struct FileStatus {
  FileType type = FileType::NotFound;
  std::uint64_t size = 0;      // regular files only
  FileTime lastWriteTime{};
  std::uint32_t mode = 0;      // permission bits (07777)
};

// The operations on the local file system (POSIX; paths are ustring in the host's form, UTF-16 with
// '/' between components, converted to UTF-8). Errors: every operation that touches the disk throws
// opc::Exception naming the path and the OS error text, except where a missing file is an answer
// (status).
class FileSystemOps {
 public:
  // Pure path text; nothing on disk is consulted.
  // "png" for "/a/shot.png", "" for "/a/README" or "/a/.profile" (a leading dot starts no extension).
  [[nodiscard]] ustring getExtension(const ustring& path) const;
  // The last component: "shot.png" for "/a/shot.png"; trailing separators are ignored.
  [[nodiscard]] ustring getFilename(const ustring& path) const;

  // Does not follow a final symbolic link when `followLinks` is false.
  [[nodiscard]] FileStatus status(const ustring& path, bool followLinks = true) const;
  // Creates the folder and its missing parents; an existing folder is no error.
  void createDirectories(const ustring& path) const;
  [[nodiscard]] std::unique_ptr<InputStream> openInputStream(const ustring& path) const;
};

}  // namespace opc
