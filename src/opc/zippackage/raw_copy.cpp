#include "opc/zippackage/raw_copy.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <numeric>

#include "opc/detail/fd.h"
#include "opc/exception.h"

namespace opc::zippackage {

namespace {

using namespace le;

// Copies [from, from + size) of `in` to `to` in `out`, inside the kernel where it can, writing behind.
void copyRange(int in, std::uint64_t from, int out, std::uint64_t to, std::uint64_t size, const std::string& path) {
  bool kernel = true;
  std::vector<std::uint8_t> buffer;
  detail::WriteBehind behind(out, to);
  while (size > 0) {
    const std::size_t chunk = static_cast<std::size_t>(std::min<std::uint64_t>(size, detail::kWriteBehind));
    std::size_t n = 0;
    if (kernel) {
      auto inOffset = static_cast<off_t>(from);
      auto outOffset = static_cast<off_t>(to);
      const ssize_t copied = ::copy_file_range(in, &inOffset, out, &outOffset, chunk, 0);
      if (copied < 0) {
        if (errno == EINTR) continue;
        if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP && errno != EBADF) {
          throw Exception(detail::osError("cannot copy entries into the new package in", path, errno));
        }
        kernel = false;
        continue;
      }
      n = static_cast<std::size_t>(copied);
    } else {
      buffer.resize(1u << 20);
      n = detail::preadSome(in, buffer.data(), std::min(chunk, buffer.size()), from, path);
      if (n > 0) detail::pwriteAll(out, buffer.data(), n, to, path);
    }
    if (n == 0) throw Exception("cannot copy entries into '" + path + "': the old package ended early");
    from += n;
    to += n;
    size -= n;
    behind.written(to, size == 0);
  }
}

}  // namespace

RawCopier::RawCopier(int sourceFd, std::string sourcePath, std::shared_ptr<const CentralDirectory> source)
    : sourceFd_(sourceFd), sourcePath_(std::move(sourcePath)), source_(std::move(source)) {
  const auto& records = source_->records();
  std::vector<std::size_t> order(records.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    return records[a].localHeaderOffset < records[b].localHeaderOffset;
  });
  extentEnd_.assign(records.size(), 0);
  for (std::size_t i = 0; i < order.size(); ++i) {
    extentEnd_[order[i]] = i + 1 < order.size() ? records[order[i + 1]].localHeaderOffset : source_->offset();
  }
}

bool RawCopier::canCopy(std::size_t index, std::string_view name) const {
  if (index >= source_->records().size()) return false;
  const ZipEntry& r = source_->records()[index];
  const std::string_view stored = source_->storedName(r);
  if (stored != name || !r.compression || r.encrypted) return false;
  const std::uint64_t extent = extentEnd_[index] - r.localHeaderOffset;
  // Room for at least the header, the name and the data; a local extra field or a descriptor may
  // take the rest.
  return extentEnd_[index] >= r.localHeaderOffset && r.compressedSize <= extent &&
         extent - r.compressedSize >= kLocalHeaderSize + stored.size();
}

std::uint64_t RawCopier::copyTo(int fd, std::uint64_t position, const std::function<void(std::string_view)>& record,
                                const std::string& path) const {
  const auto& records = source_->records();
  // Runs of entries that follow each other in the old file are copied with one call.
  std::size_t i = 0;
  while (i < queued_.size()) {
    const std::uint64_t runStart = records[queued_[i]].localHeaderOffset;
    std::uint64_t runEnd = extentEnd_[queued_[i]];
    std::size_t j = i + 1;
    while (j < queued_.size() && records[queued_[j]].localHeaderOffset == runEnd) runEnd = extentEnd_[queued_[j++]];
    copyRange(sourceFd_, runStart, fd, position, runEnd - runStart, path);
    for (std::size_t k = i; k < j; ++k) {
      const ZipEntry& r = records[queued_[k]];
      const std::uint64_t offset = position + (r.localHeaderOffset - runStart);
      const std::string relocated = relocatedRecord(std::string(source_->bytes(), r.recordOffset, r.recordLength), offset);
      // A ZIP64 offset raises "version needed", and a foreign ASCII name gains the UTF-8 flag: readers
      // check that the local header agrees.
      const std::uint16_t version = get16(relocated.data() + 6);
      const bool raised = version != get16(source_->bytes().data() + r.recordOffset + 6);
      const bool utf8Added = (r.flags & kFlagUtf8) == 0 && (get16(relocated.data() + 8) & kFlagUtf8) != 0;
      if (raised || utf8Added) {
        std::uint8_t fields[4];  // the local header's version needed and flags
        if (detail::preadSome(sourceFd_, fields, 4, r.localHeaderOffset + 4, sourcePath_) != 4) {
          throw Exception("cannot copy entries into '" + path + "': the old package ended early");
        }
        if (raised) put16(fields, version);
        if (utf8Added) put16(fields + 2, static_cast<std::uint16_t>(get16(fields + 2) | kFlagUtf8));
        detail::pwriteAll(fd, fields, 4, offset + 4, path);
      }
      record(relocated);
    }
    position += runEnd - runStart;
    i = j;
  }
  return position;
}

}  // namespace opc::zippackage
