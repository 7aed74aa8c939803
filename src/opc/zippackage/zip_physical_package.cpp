#include "opc/zippackage/zip_physical_package.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/zippackage/central_directory.h"

namespace opc::zippackage {

namespace {

using le::get16;
using le::get32;

// Deflate cannot expand its input more than 1032 times (258 bytes from each two-bit code at best);
// an entry that declares more is lying.
constexpr std::uint64_t kMaxDeflateRatio = 1032;
// Read with an entry's data in one pread: room for a local extra field the directory does not show.
constexpr std::size_t kLocalExtraSlack = 64;

[[noreturn]] void refuse(const std::string& description, const std::string& why) {
  throw Exception("cannot read " + description + ": " + why);
}

// Streams one entry's bytes from the offsets its directory record gives, with pread on the
// package's descriptor (several streams may read at once), inflating deflated data with zlib. More
// bytes than the record's size are refused as they come, so a forged size cannot make a reader
// inflate without bound; at the end the size and CRC-32 must match.
class EntryStream : public InputStream {
 public:
  EntryStream(int fd, std::uint64_t dataOffset, const ZipEntry& entry, bool raw, std::string description)
      : fd_(fd),
        next_(dataOffset),
        remaining_(entry.compressedSize),
        inflate_(!raw && entry.compression == Compression::Deflated),
        check_(!raw),
        expectedSize_(raw ? entry.compressedSize : entry.size),
        expectedCrc_(entry.crc),
        description_(std::move(description)) {
    if (inflate_) {
      input_.resize(kInputSize);
      if (inflateInit2(&z_, -MAX_WBITS) != Z_OK) refuse(description_, "zlib failed to start");
      zOpen_ = true;
    }
  }
  ~EntryStream() override {
    if (zOpen_) inflateEnd(&z_);
  }
  EntryStream(const EntryStream&) = delete;
  EntryStream& operator=(const EntryStream&) = delete;

  [[nodiscard]] std::size_t read(std::uint8_t* buffer, std::size_t size) override {
    if (done_ || size == 0) return 0;
    const std::size_t n = inflate_ ? inflateInto(buffer, size) : copyInto(buffer, size);
    if (n > expectedSize_ - produced_) refuse(description_, "it holds more bytes than its size says");
    produced_ += n;
    if (check_) crc_ = static_cast<std::uint32_t>(libdeflate_crc32(crc_, buffer, n));
    if (n == 0) finish();
    return n;
  }

 private:
  static constexpr std::size_t kInputSize = 64u << 10;

  std::size_t copyInto(std::uint8_t* buffer, std::size_t size) {
    const auto want = static_cast<std::size_t>(std::min<std::uint64_t>(size, remaining_));
    if (want == 0) return 0;
    const std::size_t n = detail::preadSome(fd_, buffer, want, next_, description_);
    if (n == 0) refuse(description_, "the file ends early");
    next_ += n;
    remaining_ -= n;
    return n;
  }

  std::size_t inflateInto(std::uint8_t* buffer, std::size_t size) {
    if (streamEnded_) return 0;
    const auto room = static_cast<uInt>(std::min<std::size_t>(size, 1u << 30));
    z_.next_out = buffer;
    z_.avail_out = room;
    while (z_.avail_out == room) {  // until some bytes come out or the stream ends
      if (z_.avail_in == 0) {
        const std::size_t got = copyInto(input_.data(), input_.size());
        if (got == 0) refuse(description_, "its compressed data ends early");
        z_.next_in = input_.data();
        z_.avail_in = static_cast<uInt>(got);
      }
      const int rc = ::inflate(&z_, Z_NO_FLUSH);
      if (rc == Z_STREAM_END) {
        streamEnded_ = true;
        break;
      }
      if (rc != Z_OK && rc != Z_BUF_ERROR) {
        refuse(description_, std::string("its compressed data is corrupt (") + (z_.msg != nullptr ? z_.msg : "zlib error") + ")");
      }
    }
    return room - z_.avail_out;
  }

  void finish() {
    done_ = true;
    if (!check_) return;
    if (produced_ != expectedSize_) refuse(description_, "it holds fewer bytes than its size says");
    if (inflate_ && (z_.avail_in != 0 || remaining_ != 0)) refuse(description_, "data follows the end of its compressed stream");
    if (crc_ != expectedCrc_) refuse(description_, "CRC error: the data does not match its checksum");
  }

  int fd_;
  std::uint64_t next_;       // file offset of the next stored byte
  std::uint64_t remaining_;  // stored bytes not read yet
  bool inflate_;
  bool check_;
  std::uint64_t expectedSize_;
  std::uint32_t expectedCrc_;
  std::string description_;
  std::vector<std::uint8_t> input_;
  z_stream z_{};
  bool zOpen_ = false;
  bool streamEnded_ = false;
  bool done_ = false;
  std::uint64_t produced_ = 0;
  std::uint32_t crc_ = 0;
};

bool isUtf8(std::string_view text) {
  try {
    (void)detail::fromUtf8(text, "name");
    return true;
  } catch (const Exception&) {
    return false;
  }
}

// Names stored without the UTF-8 flag that are not UTF-8 were written in code page 437, the ZIP
// format's original character set.
std::string cp437ToUtf8(std::string_view text) {
  static constexpr char16_t kHigh[128] = {
      0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7, 0x00EA, 0x00EB, 0x00E8, 0x00EF, 0x00EE,
      0x00EC, 0x00C4, 0x00C5, 0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9, 0x00FF, 0x00D6,
      0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192, 0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x00F1, 0x00D1, 0x00AA,
      0x00BA, 0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB, 0x2591, 0x2592, 0x2593, 0x2502,
      0x2524, 0x2561, 0x2562, 0x2556, 0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510, 0x2514,
      0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F, 0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550,
      0x256C, 0x2567, 0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B, 0x256A, 0x2518, 0x250C,
      0x2588, 0x2584, 0x258C, 0x2590, 0x2580, 0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4,
      0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229, 0x2261, 0x00B1, 0x2265, 0x2264, 0x2320,
      0x2321, 0x00F7, 0x2248, 0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,
  };
  std::string out;
  out.reserve(text.size() * 2);
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (c < 0x80) {
      out += ch;
      continue;
    }
    const char16_t u = kHigh[c - 0x80];
    if (u < 0x800) {
      out += static_cast<char>(0xC0 | (u >> 6));
    } else {
      out += static_cast<char>(0xE0 | (u >> 12));
      out += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
    }
    out += static_cast<char>(0x80 | (u & 0x3F));
  }
  return out;
}

// What the directory record says of the entry beyond its sizes: the time from an NTFS or
// extended-timestamp extra field, else its DOS time (local time); the mode when made on Unix.
EntryAttributes readAttributes(std::string_view record) {
  EntryAttributes attributes;
  const std::size_t nameLength = get16(record.data() + 28);
  const std::string_view extra = record.substr(kRecordSize + nameLength, get16(record.data() + 30));
  attributes.lastModified = extra::decodeNtfs(findExtra(extra, extra::kNtfsId).value_or(""));
  if (!attributes.lastModified) {
    attributes.lastModified = extra::decodeExtendedTimestamp(findExtra(extra, extra::kExtendedTimestampId).value_or(""));
  }
  if (!attributes.lastModified) {
    const std::uint16_t time = get16(record.data() + 12);
    const std::uint16_t date = get16(record.data() + 14);
    std::tm tm{};
    tm.tm_isdst = -1;
    tm.tm_year = ((date >> 9) & 127) + 1980 - 1900;
    tm.tm_mon = ((date >> 5) & 15) - 1;
    tm.tm_mday = date & 31;
    tm.tm_hour = (time >> 11) & 31;
    tm.tm_min = (time >> 5) & 63;
    tm.tm_sec = (time << 1) & 62;
    attributes.lastModified = FileTime{static_cast<std::int64_t>(std::mktime(&tm)), 0};
  }
  if ((get16(record.data() + 4) >> 8) == 3) {  // made on Unix: the mode is in the external attributes
    const std::uint32_t mode = get32(record.data() + 38) >> 16;
    if (mode != 0) attributes.unixMode = mode & 07777;
  }
  return attributes;
}

}  // namespace

// Where an entry's data lies, found from its local header.
struct ZipPhysicalPackage::Located {
  const ZipEntry& entry;
  std::uint64_t dataOffset;
  std::size_t headerLength;  // where the data starts in the buffer read with it
  std::string description;  // "entry N 'name' of 'path'", for messages
};

ZipPhysicalPackage::ZipPhysicalPackage(const ustring& path, bool durable)
    : path_(path), narrowPath_(detail::toUtf8(path, "package path")), durable_(durable) {
  if (path_.empty()) throw Exception("empty package path");
}

ZipPhysicalPackage::~ZipPhysicalPackage() {
  closeArchive();
}

void ZipPhysicalPackage::openArchive() {
  closeArchive();
  // One descriptor pins one file: a writer that renames a new package over this path between our
  // size check and our reads must not hand us the old size and the new bytes.
  detail::UniqueFd fd(openPackageFile(path_, narrowPath_));
  auto directory = std::make_shared<const CentralDirectory>(CentralDirectory::read(fd.get(), narrowPath_));
  std::vector<ZipEntry> entries;
  std::deque<std::string> convertedNames;
  entries.reserve(directory->records().size());
  for (const DirectoryRecord& r : directory->records()) {
    ZipEntry entry;
    entry.index = entries.size();
    const bool ascii = std::all_of(r.name.begin(), r.name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    entry.name = ascii || (r.flags & kFlagUtf8) != 0 || isUtf8(r.name) ? r.name : convertedNames.emplace_back(cp437ToUtf8(r.name));
    entry.size = r.size;
    entry.compressedSize = r.compressedSize;
    entry.compression = compressionOf(r.method);
    entry.compressionMethod = r.method;
    entry.crc = r.crc;
    entry.encrypted = r.encrypted();
    entry.attributes = readAttributes(directory->recordBytes(r));
    entries.push_back(entry);
  }
  fd_ = fd.release();
  directory_ = std::move(directory);
  entries_ = std::move(entries);
  convertedNames_ = std::move(convertedNames);
}

void ZipPhysicalPackage::closeArchive() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  entries_.clear();
  convertedNames_.clear();
  directory_.reset();
}

std::string ZipPhysicalPackage::entryDefect(std::uint64_t index) const {
  const ZipEntry& e = entries_.at(index);
  if (e.encrypted) return "it is encrypted";
  if (!e.compression) return "compression method " + std::to_string(e.compressionMethod) + " is not supported";
  const std::string declares = "it declares " + std::to_string(e.size) + " bytes";
  if (e.compression == Compression::Stored && e.size != e.compressedSize) {
    return declares + " but stores " + std::to_string(e.compressedSize);
  }
  if (e.compression == Compression::Deflated && e.size / kMaxDeflateRatio > e.compressedSize) {
    return declares + " from " + std::to_string(e.compressedSize) + " compressed bytes, more than its compression can yield";
  }
  return {};
}

ZipPhysicalPackage::Located ZipPhysicalPackage::locate(std::uint64_t index, bool raw,
                                                      std::vector<std::uint8_t>* whole) const {
  if (fd_ < 0) throw Exception("package '" + narrowPath_ + "' is not open");
  const std::string description = "entry " + std::to_string(index) +
                                  (index < entries_.size() ? " '" + std::string(entries_[index].name) + "'" : std::string()) +
                                  " of '" + narrowPath_ + "'";
  if (index >= entries_.size()) throw Exception("cannot open " + description + ": no such entry");
  if (const std::string defect = raw ? std::string() : entryDefect(index); !defect.empty()) {
    throw Exception("cannot open " + description + ": " + defect);
  }
  const DirectoryRecord& r = directory_->records()[index];
  const auto compressed = static_cast<std::size_t>(r.compressedSize);
  std::uint8_t header[kLocalHeaderSize];
  std::size_t want = kLocalHeaderSize;
  std::uint8_t* into = header;
  if (whole != nullptr) {  // the header, a guess at its name and extra field, and the data in one read
    want += r.name.size() + kLocalExtraSlack + compressed;
    if (whole->size() < want) whole->resize(want);
    into = whole->data();
  }
  const std::size_t got = preadFull(fd_, into, want, r.localHeaderOffset, narrowPath_);
  const std::size_t headerLength = localHeaderLength(into, got);
  if (headerLength == 0) {
    throw Exception("cannot open " + description + ": no local header where its directory record points");
  }
  const std::uint64_t dataOffset = r.localHeaderOffset + headerLength;
  if (dataOffset > directory_->offset() || r.compressedSize > directory_->offset() - dataOffset) {
    throw Exception("cannot open " + description + ": its data runs into the central directory");
  }
  if (whole != nullptr && got < headerLength + compressed) {
    if (whole->size() < headerLength + compressed) whole->resize(headerLength + compressed);
    if (preadFull(fd_, whole->data() + got, headerLength + compressed - got, r.localHeaderOffset + got, narrowPath_) !=
        headerLength + compressed - got) {
      refuse(description, "the file ends early");
    }
  }
  return {entries_[index], dataOffset, headerLength, description};
}

std::unique_ptr<InputStream> ZipPhysicalPackage::openEntry(std::uint64_t index) const {
  Located at = locate(index, false, nullptr);
  return std::make_unique<EntryStream>(fd_, at.dataOffset, at.entry, false, std::move(at.description));
}

std::unique_ptr<InputStream> ZipPhysicalPackage::openRawEntry(std::uint64_t index) const {
  Located at = locate(index, true, nullptr);
  return std::make_unique<EntryStream>(fd_, at.dataOffset, at.entry, true, std::move(at.description));
}

void ZipPhysicalPackage::readEntry(std::uint64_t index, std::vector<std::uint8_t>& out,
                                   std::vector<std::uint8_t>& scratch) const {
  // Deflate streams are never much longer than their data; one that is streams through, so that
  // `scratch` stays about the size of `out`.
  if (index < entries_.size() && entries_[index].compression == Compression::Deflated &&
      entries_[index].compressedSize > entries_[index].size + entries_[index].size / 8 + 1024) {
    const auto stream = openEntry(index);
    out.resize(static_cast<std::size_t>(entries_[index].size));
    std::size_t got = 0;
    while (const std::size_t n = got < out.size() ? stream->read(out.data() + got, out.size() - got) : 0) got += n;
    std::uint8_t probe;
    (void)stream->read(&probe, 1);  // the end: checks the length and the CRC
    return;
  }
  const Located at = locate(index, false, &scratch);
  const ZipEntry& e = at.entry;
  const auto size = static_cast<std::size_t>(e.size);
  const bool deflated = e.compression == Compression::Deflated;
  out.resize(size);
  const std::uint8_t* data = scratch.data() + at.headerLength;
  const auto compressed = static_cast<std::size_t>(e.compressedSize);
  if (!deflated) {
    std::copy_n(data, size, out.data());
  } else {
    const std::unique_ptr<libdeflate_decompressor, decltype(&libdeflate_free_decompressor)> inflater(
        libdeflate_alloc_decompressor(), &libdeflate_free_decompressor);
    if (!inflater) throw std::bad_alloc();
    std::size_t in = 0;
    std::size_t produced = 0;
    switch (libdeflate_deflate_decompress_ex(inflater.get(), data, compressed, out.data(), size, &in, &produced)) {
      case LIBDEFLATE_SUCCESS:
        if (produced != size) refuse(at.description, "it holds fewer bytes than its size says");
        if (in != compressed) refuse(at.description, "data follows the end of its compressed stream");
        break;
      case LIBDEFLATE_INSUFFICIENT_SPACE:
        refuse(at.description, "it holds more bytes than its size says");
      default:
        refuse(at.description, "its compressed data is corrupt");
    }
  }
  if (libdeflate_crc32(0, out.data(), size) != e.crc) refuse(at.description, "CRC error: the data does not match its checksum");
}

std::unique_ptr<ZipWriter> ZipPhysicalPackage::createWriter() {
  return std::unique_ptr<ZipWriter>(new ZipWriter(*this));
}

}  // namespace opc::zippackage
