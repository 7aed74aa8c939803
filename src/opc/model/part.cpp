#include "opc/model/part.h"

#include "opc/detail/content_sources.h"
#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/model/package.h"
#include "opc/zippackage/zip_physical_package.h"

namespace opc::model {

namespace {

using opc::detail::narrow;

// Appends to the spool that holds the part's new content, as long as the part still uses it.
class PartOutputStream : public OutputStream {
 public:
  PartOutputStream(std::shared_ptr<Part> part, std::shared_ptr<opc::detail::SpoolContent> spool,
                   const std::uint32_t* generation, std::uint32_t expected)
      : part_(std::move(part)), spool_(std::move(spool)), generation_(generation), expected_(expected) {}

  void write(const std::uint8_t* data, std::size_t size) override {
    if (part_->isDetached() || *generation_ != expected_) {
      throw Exception("cannot write to part '" + std::string(part_->getPartName().text()) +
                      "': its content was replaced, or the part was deleted or closed");
    }
    spool_->append(data, size);
  }
  void flush() override {}

 private:
  std::shared_ptr<Part> part_;  // keeps *generation_ alive
  std::shared_ptr<opc::detail::SpoolContent> spool_;
  const std::uint32_t* generation_;
  std::uint32_t expected_;
};

}  // namespace

Part::Part(Key, Package* owner, PartName name, ContentType contentType, Compression compression)
    : owner_(owner),
      name_(std::move(name)),
      contentType_(std::move(contentType)),
      compression_(compression) {}

Part::~Part() = default;

Package& Part::owner() const {
  if (owner_ == nullptr) {
    throw Exception("part '" + std::string(name_.text()) + "' is no longer in an open package");
  }
  return *owner_;
}

Package& Part::writableOwner() {
  Package& package = owner();
  package.requireWritable();
  return package;
}

void Part::contentChanged() {
  contentChanged_ = true;
  ++contentGeneration_;
}

std::unique_ptr<InputStream> Part::getInputStream() const {
  const Package& package = owner();
  if (content_) return content_->openStream();
  if (sourceEntry_) return package.physical_.openEntry(*sourceEntry_);
  return opc::detail::MemoryContentSource(std::string()).openStream();
}

std::unique_ptr<OutputStream> Part::getOutputStream() {
  Package& package = writableOwner();
  auto spool = std::make_shared<opc::detail::SpoolContent>(opc::detail::folderOf(package.physical_.getNarrowPath()));
  content_ = spool;
  contentChanged();
  // The package's handle keeps the part (and so the generation) alive as long as the stream.
  PartPtr self = package.parts_[*package.byKey_.find(name_.text())];
  return std::make_unique<PartOutputStream>(std::move(self), std::move(spool), &contentGeneration_, contentGeneration_);
}

void Part::setContentSource(std::shared_ptr<const ContentSource> source) {
  writableOwner();
  if (!source) throw Exception("part '" + std::string(name_.text()) + "': no content source given");
  content_ = std::move(source);
  contentChanged();
}

std::uint64_t Part::getSize() const {
  owner();
  if (content_) {
    if (const auto size = content_->size()) return *size;
    auto stream = content_->openStream();
    std::uint8_t buffer[64 * 1024];
    std::uint64_t total = 0;
    while (const std::size_t n = stream->read(buffer, sizeof buffer)) total += n;
    return total;
  }
  return sourceEntry_ ? owner_->physical_.getEntries()[*sourceEntry_].size : 0;
}

std::optional<FileTime> Part::getLastModifiedTime() const {
  owner();
  return attributes_.time();
}

void Part::setLastModifiedTime(FileTime time) {
  writableOwner();
  if (time.nanoseconds > 999'999'999) throw Exception("invalid modification time: nanoseconds out of range");
  attributes_.setTime(time);
  attributesChanged_ = true;
}

std::optional<std::uint32_t> Part::getUnixMode() const {
  owner();
  return attributes_.mode();
}

void Part::setUnixMode(std::uint32_t mode) {
  writableOwner();
  attributes_.setMode(mode);
  attributesChanged_ = true;
}

Relationships& Part::relationships() const {
  if (!relationships_) {
    auto made = std::make_unique<Relationships>(name_.getURI());
    if (relationshipsEntry_ && owner_ != nullptr) owner_->readPartRelationships(*relationshipsEntry_, *made);
    made->readOnly_ = owner_ != nullptr && owner_->mode_ == interfaces::OpenMode::Read;
    relationships_ = std::move(made);
  }
  return *relationships_;
}

Relationships& Part::getRelationships() {
  owner();
  return relationships();
}

const Relationships& Part::getRelationships() const {
  owner();
  return relationships();
}

}  // namespace opc::model
