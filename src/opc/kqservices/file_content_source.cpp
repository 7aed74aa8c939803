#include "opc/kqservices/file_content_source.h"

#include <algorithm>
#include <cstring>

#include "opc/detail/text.h"
#include "opc/exception.h"

namespace opc::kqservices {

std::shared_ptr<const ContentSource> fileContent(const ustring& path) {
  return std::make_shared<FileContentBatch>()->add(path).source;
}

FileContentBatch::Added FileContentBatch::add(const ustring& path) {
  const FileStatus status = FileSystemOps().status(path);
  if (status.type == FileType::NotFound) throw Exception("content file not found: '" + detail::narrow(path) + "'");
  if (status.type != FileType::Regular) {
    throw Exception("content file is not a regular file: '" + detail::narrow(path) + "'");
  }
  const std::string utf8 = detail::toUtf8(path, "content file path");
  const std::size_t slash = utf8.rfind('/');
  const std::string_view folder = slash == std::string::npos ? std::string_view() : std::string_view(utf8).substr(0, slash + 1);
  const std::string_view name = std::string_view(utf8).substr(folder.size());
  if (name.size() > UINT32_MAX) throw Exception("content file name too long: '" + detail::narrow(path) + "'");
  if (folders_.empty() || folders_.back() != folder) {
    if (folders_.size() == UINT32_MAX) throw Exception("too many folders of content files");
    folders_.emplace_back(folder);
  }
  const auto folderNumber = static_cast<std::uint32_t>(folders_.size() - 1);
  if (chunkUsed_ + name.size() > kChunk) {
    names_.push_back(std::make_unique_for_overwrite<char[]>(std::max(kChunk, name.size())));
    chunkUsed_ = 0;
  }
  char* copy = names_.back().get() + chunkUsed_;
  std::memcpy(copy, name.data(), name.size());
  chunkUsed_ += name.size();
  Source& source = sources_.emplace_back(*this, folderNumber, std::string_view(copy, name.size()), status.size);
  return {std::shared_ptr<const ContentSource>(shared_from_this(), &source), status};
}

std::unique_ptr<InputStream> FileContentBatch::Source::openStream() const {
  const std::string utf8 = batch_->folders_[folder_] + std::string(name_, length_);
  return FileSystemOps().openInputStream(detail::fromUtf8(utf8, "content file path"));
}

}  // namespace opc::kqservices
