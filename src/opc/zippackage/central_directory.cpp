#include "opc/zippackage/central_directory.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "opc/detail/fd.h"
#include "opc/exception.h"

namespace opc::zippackage {

namespace {

using le::get16;
using le::get32;
using le::get64;

[[noreturn]] void malformed(const std::string& path, const std::string& what) {
  throw Exception("cannot open package '" + path + "': " + what);
}

void readExactly(int fd, char* into, std::size_t size, std::uint64_t at, const std::string& path) {
  if (preadFull(fd, into, size, at, path) != size) malformed(path, "the file ends early");
}

// Replaces the 32-bit fields that hold 0xFFFFFFFF by their values in the ZIP64 extra field, in
// the order the format gives: size, compressed size, local header offset.
void resolveZip64(DirectoryRecord& record, std::string_view extra, const std::string& path) {
  const bool wantSize = record.size == kMax32;
  const bool wantCompressed = record.compressedSize == kMax32;
  const bool wantOffset = record.localHeaderOffset == kMax32;
  if (!wantSize && !wantCompressed && !wantOffset) return;
  const auto field = findExtra(extra, kZip64Id);
  if (!field) malformed(path, "an entry's sizes need a ZIP64 extra field that is missing");
  std::string_view fields = *field;
  const auto take = [&](std::uint64_t& value) {
    if (fields.size() < 8) malformed(path, "a ZIP64 extra field is too short");
    value = get64(fields.data());
    fields.remove_prefix(8);
  };
  if (wantSize) take(record.size);
  if (wantCompressed) take(record.compressedSize);
  if (wantOffset) take(record.localHeaderOffset);
}

}  // namespace

std::size_t preadFull(int fd, void* into, std::size_t size, std::uint64_t offset, const std::string& path) {
  std::size_t got = 0;
  while (got < size) {
    const std::size_t n = detail::preadSome(fd, static_cast<std::uint8_t*>(into) + got, size - got, offset + got, path);
    if (n == 0) break;
    got += n;
  }
  return got;
}

int openPackageFile(const ustring& path, const std::string& narrowPath) {
  detail::UniqueFd fd(::open(narrowPath.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) {
    if (errno == ENOENT || errno == ENOTDIR) throw model::PackageNotFound(path);
    throw Exception(detail::osError("cannot open package", narrowPath, errno));
  }
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) throw Exception(detail::osError("cannot open package", narrowPath, errno));
  if (S_ISDIR(st.st_mode)) throw Exception("cannot open package '" + narrowPath + "': it is a folder");
  return fd.release();
}

CentralDirectory CentralDirectory::read(int fd, const std::string& path) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) throw Exception(detail::osError("cannot open package", path, errno));
  const auto fileSize = static_cast<std::uint64_t>(st.st_size);
  if (fileSize < kEndSize) malformed(path, "it is no ZIP archive (too short)");

  // The end record is the last one whose comment reaches no further than the file.
  const std::size_t tailSize = static_cast<std::size_t>(std::min<std::uint64_t>(fileSize, kEndSize + 0xFFFF));
  std::string tail(tailSize, '\0');
  readExactly(fd, tail.data(), tailSize, fileSize - tailSize, path);
  std::size_t end = std::string::npos;
  for (std::size_t i = tailSize - kEndSize + 1; i-- > 0;) {
    if (get32(tail.data() + i) == kEndSignature && i + kEndSize + get16(tail.data() + i + 20) <= tailSize) {
      end = i;
      break;
    }
  }
  if (end == std::string::npos) malformed(path, "it is no ZIP archive (no end of central directory)");
  const std::uint64_t endAt = fileSize - tailSize + end;
  const char* e = tail.data() + end;
  if (get16(e + 4) != 0 || get16(e + 6) != 0) malformed(path, "archives split over several disks are not supported");
  std::uint64_t count = get16(e + 10);
  std::uint64_t size = get32(e + 12);
  std::uint64_t offset = get32(e + 16);
  std::uint64_t directoryEnd = endAt;  // the directory must end before the end records

  if (endAt >= kLocatorSize) {
    char locator[kLocatorSize];
    readExactly(fd, locator, kLocatorSize, endAt - kLocatorSize, path);
    if (get32(locator) == kLocatorSignature) {
      const std::uint64_t end64At = get64(locator + 8);
      if (end64At > endAt - kLocatorSize || endAt - kLocatorSize - end64At < kEnd64Size) {
        malformed(path, "the ZIP64 end record lies outside the file");
      }
      char end64[kEnd64Size];
      readExactly(fd, end64, kEnd64Size, end64At, path);
      if (get32(end64) != kEnd64Signature) malformed(path, "the ZIP64 end record is missing");
      count = get64(end64 + 32);
      size = get64(end64 + 40);
      offset = get64(end64 + 48);
      directoryEnd = end64At;
    }
  }
  if (count > kMaxEntries) {
    malformed(path, "it has " + std::to_string(count) + " items, more than the " + std::to_string(kMaxEntries) +
                        " a package may hold");
  }
  if (size > kMaxBytes) malformed(path, "its central directory is larger than " + std::to_string(kMaxBytes) + " bytes");
  if (offset > directoryEnd || size > directoryEnd - offset) malformed(path, "the central directory lies outside the file");
  if (size < count * kRecordSize) malformed(path, "the central directory is shorter than its entries");

  CentralDirectory directory;
  directory.offset_ = offset;
  directory.bytes_.resize(static_cast<std::size_t>(size));
  readExactly(fd, directory.bytes_.data(), directory.bytes_.size(), offset, path);
  directory.records_.reserve(static_cast<std::size_t>(count));
  const std::string& bytes = directory.bytes_;
  std::size_t at = 0;
  for (std::uint64_t i = 0; i < count; ++i) {
    if (bytes.size() - at < kRecordSize || get32(bytes.data() + at) != kRecordSignature) {
      malformed(path, "central directory record " + std::to_string(i) + " is malformed");
    }
    const char* r = bytes.data() + at;
    const std::size_t nameLength = get16(r + 28);
    const std::size_t extraLength = get16(r + 30);
    const std::size_t length = kRecordSize + nameLength + extraLength + get16(r + 32);
    if (length > bytes.size() - at) malformed(path, "central directory record " + std::to_string(i) + " is cut short");
    DirectoryRecord record;
    record.flags = get16(r + 8);
    record.method = get16(r + 10);
    record.crc = get32(r + 16);
    record.compressedSize = get32(r + 20);
    record.size = get32(r + 24);
    record.localHeaderOffset = get32(r + 42);
    record.name = std::string_view(r + kRecordSize, nameLength);
    record.recordOffset = at;
    record.recordLength = length;
    resolveZip64(record, std::string_view(r + kRecordSize + nameLength, extraLength), path);
    if (record.localHeaderOffset > offset) {
      malformed(path, "entry '" + std::string(record.name) + "' starts after the central directory");
    }
    directory.records_.push_back(record);
    at += length;
  }
  return directory;
}

}  // namespace opc::zippackage
