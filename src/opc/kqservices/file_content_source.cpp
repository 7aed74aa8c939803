#include "opc/kqservices/file_content_source.h"

#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::kqservices {

FileContentSource::FileContentSource(const ustring& path, std::shared_ptr<FileSystemOps> fileSystem)
    : path_(path), fileSystem_(std::move(fileSystem)) {
  status_ = fileSystem_->status(path_);
  if (status_.type == FileType::NotFound) {
    throw Exception("content file not found: '" + detail::narrow(path_) + "'");
  }
  if (status_.type != FileType::Regular) {
    throw Exception("content file is not a regular file: '" + detail::narrow(path_) + "'");
  }
}

std::unique_ptr<InputStream> FileContentSource::openStream() const {
  return fileSystem_->openInputStream(path_);
}

}  // namespace opc::kqservices
