#include "opc/detail/content_sources.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "opc/exception.h"

namespace opc::detail {

namespace {

class MemoryStream : public BytesInputStream {
 public:
  explicit MemoryStream(std::shared_ptr<const std::string> bytes)
      : BytesInputStream({reinterpret_cast<const std::uint8_t*>(bytes->data()), bytes->size()}),
        bytes_(std::move(bytes)) {}

 private:
  std::shared_ptr<const std::string> bytes_;  // what the stream reads, kept alive
};

class SpoolStream : public InputStream {
 public:
  explicit SpoolStream(std::shared_ptr<const SpoolContent> spool) : spool_(std::move(spool)) {}
  [[nodiscard]] std::size_t read(std::uint8_t* buffer, std::size_t size) override {
    const std::size_t n = spool_->readAt(offset_, buffer, size);
    offset_ += n;
    return n;
  }

 private:
  std::shared_ptr<const SpoolContent> spool_;
  std::uint64_t offset_ = 0;
};

mode_t currentUmask() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("Umask:", 0) == 0) return static_cast<mode_t>(std::stoul(line.substr(6), nullptr, 8));
  }
  return 022;
}

}  // namespace

UniqueFd createTemporaryFile(const std::string& folder, unsigned mode, std::string pattern, int suffixLength,
                             std::string* name) {
  UniqueFd fd(::open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
  if (fd) return fd;
  if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL) {
    throw Exception(osError("cannot create a temporary file in", folder, errno));
  }
  pattern = folder + "/" + pattern;
  fd = UniqueFd(::mkostemps(pattern.data(), suffixLength, O_CLOEXEC));
  if (!fd) throw Exception(osError("cannot create a temporary file in", folder, errno));
  if (name == nullptr) {
    ::unlink(pattern.c_str());
  } else {
    *name = std::move(pattern);
    ::fchmod(fd.get(), mode & ~currentUmask());
  }
  return fd;
}

std::size_t BytesInputStream::read(std::uint8_t* buffer, std::size_t size) {
  const std::size_t n = std::min(size, bytes_.size() - position_);
  std::copy_n(bytes_.data() + position_, n, buffer);
  position_ += n;
  return n;
}

std::unique_ptr<InputStream> MemoryContentSource::openStream() const {
  return std::make_unique<MemoryStream>(bytes_);
}

void SpoolContent::append(const std::uint8_t* data, std::size_t size) {
  if (memory_.size() + size > memoryLimit_) {
    if (!file_) {
      file_ = createTemporaryFile(folder_.empty() ? std::string(".") : folder_, 0600, ".opc-spool-XXXXXX", 0, nullptr);
    }
    pwriteAll(file_.get(), memory_.data(), memory_.size(), inFile_, folder_ + " (spool)");
    inFile_ += memory_.size();
    memory_.clear();
  }
  if (size > memoryLimit_) {
    pwriteAll(file_.get(), data, size, inFile_, folder_ + " (spool)");
    inFile_ += size;
  } else {
    memory_.insert(memory_.end(), data, data + size);
  }
  size_ += size;
}

std::size_t SpoolContent::readAt(std::uint64_t offset, std::uint8_t* out, std::size_t size) const {
  if (offset >= size_) return 0;
  if (offset < inFile_) {
    const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(size, inFile_ - offset));
    if (preadFull(file_.get(), out, n, offset, folder_ + " (spool)") != n) {
      throw Exception("spool file in '" + folder_ + "' is shorter than written");
    }
    return n;
  }
  const std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(size, size_ - offset));
  std::memcpy(out, memory_.data() + (offset - inFile_), n);
  return n;
}

std::unique_ptr<InputStream> SpoolContent::openStream() const {
  return std::make_unique<SpoolStream>(shared_from_this());
}

}  // namespace opc::detail
