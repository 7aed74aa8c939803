#include "opc/kqservices/file_content_source.h"

#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::kqservices {

FileContentSource::FileContentSource(const ustring& path, std::shared_ptr<FileSystemOps> fileSystem)
    : fileSystem_(std::move(fileSystem)) {
  status_ = fileSystem_->status(path);
  if (status_.type == FileType::NotFound) {
    throw Exception("content file not found: '" + detail::narrow(path) + "'");
  }
  if (status_.type != FileType::Regular) {
    throw Exception("content file is not a regular file: '" + detail::narrow(path) + "'");
  }
  path_ = detail::toUtf8(path, "content file path");
}

std::unique_ptr<InputStream> FileContentSource::openStream() const {
  return fileSystem_->openInputStream(detail::fromUtf8(path_, "content file path"));
}

}  // namespace opc::kqservices
