#include "opc/zippackage/raw_copy.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <numeric>

#include "opc/detail/fd.h"
#include "opc/exception.h"
#include "opc/zippackage/little_endian.h"

namespace opc::zippackage {

namespace {

constexpr std::uint32_t kMax32 = 0xFFFFFFFF;

using le::append16;
using le::append64;
using le::get16;
using le::get32;
using le::put16;
using le::put32;
using le::put64;

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

std::string relocatedRecord(std::string record, std::uint64_t offset) {
  const std::size_t nameLength = get16(record.data() + 28);
  const std::string_view name(record.data() + 46, nameLength);
  if (std::all_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; })) {
    put16(record.data() + 8, static_cast<std::uint16_t>(get16(record.data() + 8) | 0x0800));
  }
  const std::size_t extraAt = 46 + nameLength;
  const std::size_t extraLength = get16(record.data() + 30);
  if (get32(record.data() + 42) != kMax32 && offset < kMax32) {
    put32(record.data() + 42, static_cast<std::uint32_t>(offset));
    return record;
  }
  // The offset lives in the ZIP64 extra field, after the sizes that overflow.
  const std::size_t before = (get32(record.data() + 24) == kMax32 ? 8 : 0) + (get32(record.data() + 20) == kMax32 ? 8 : 0);
  const bool hadOffset = get32(record.data() + 42) == kMax32;
  put32(record.data() + 42, kMax32);
  std::size_t at = extraAt;
  while (at + 4 <= extraAt + extraLength) {
    const std::uint16_t id = get16(record.data() + at);
    const std::uint16_t length = get16(record.data() + at + 2);
    if (at + 4 + length > extraAt + extraLength) break;
    if (id == 0x0001) {
      if (hadOffset && length >= before + 8) {
        put64(record.data() + at + 4 + before, offset);
        put16(record.data() + 6, std::max<std::uint16_t>(get16(record.data() + 6), 45));
        return record;
      }
      if (!hadOffset && length >= before) {
        char value[8];
        put64(value, offset);
        record.insert(at + 4 + before, value, 8);
        put16(record.data() + at + 2, static_cast<std::uint16_t>(length + 8));
        put16(record.data() + 30, static_cast<std::uint16_t>(extraLength + 8));
        put16(record.data() + 6, std::max<std::uint16_t>(get16(record.data() + 6), 45));
        return record;
      }
      break;
    }
    at += 4u + length;
  }
  if (hadOffset || before != 0) throw Exception("an entry's ZIP64 extra field is malformed");
  std::string field;
  append16(field, 0x0001);
  append16(field, 8);
  append64(field, offset);
  record.insert(extraAt + extraLength, field);
  put16(record.data() + 30, static_cast<std::uint16_t>(extraLength + field.size()));
  put16(record.data() + 6, std::max<std::uint16_t>(get16(record.data() + 6), 45));
  return record;
}


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
  const DirectoryRecord& r = source_->records()[index];
  if (r.name != name || (r.method != 0 && r.method != 8) || (r.flags & 0x0041) != 0) return false;  // encrypted
  const std::uint64_t extent = extentEnd_[index] - r.localHeaderOffset;
  // Room for at least the header, the name and the data; a local extra field or a descriptor may
  // take the rest.
  return extentEnd_[index] >= r.localHeaderOffset && r.compressedSize <= extent &&
         extent - r.compressedSize >= kLocalHeaderSize + r.name.size();
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
      const DirectoryRecord& r = records[queued_[k]];
      const std::uint64_t offset = position + (r.localHeaderOffset - runStart);
      const std::string relocated = relocatedRecord(source_->bytes().substr(r.recordOffset, r.recordLength), offset);
      const std::uint16_t version = get16(relocated.data() + 6);
      if (version != get16(source_->bytes().data() + r.recordOffset + 6)) {
        // A ZIP64 offset raised "version needed"; readers check that the local header agrees.
        std::uint8_t value[2];
        put16(value, version);
        detail::pwriteAll(fd, value, 2, offset + 4, path);
      }
      if ((r.flags & 0x0800) == 0 && (get16(relocated.data() + 8) & 0x0800) != 0) {
        // The local header carries the flag too.
        std::uint8_t flags[2];
        if (detail::preadSome(sourceFd_, flags, 2, r.localHeaderOffset + 6, sourcePath_) != 2) {
          throw Exception("cannot copy entries into '" + path + "': the old package ended early");
        }
        flags[1] |= 0x08;
        detail::pwriteAll(fd, flags, 2, offset + 6, path);
      }
      record(relocated);
    }
    position += runEnd - runStart;
    i = j;
  }
  return position;
}

}  // namespace opc::zippackage
