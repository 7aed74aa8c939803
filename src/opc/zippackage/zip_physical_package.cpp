#include "opc/zippackage/zip_physical_package.h"

#include <libdeflate.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>

#include "opc/detail/fd.h"
#include "opc/detail/text.h"
#include "opc/exception.h"
#include "opc/zippackage/central_directory.h"

namespace opc::zippackage {

namespace {

// Deflate cannot expand its input more than 1032 times (258 bytes from each two-bit code at best);
// an entry that declares more is lying.
constexpr std::uint64_t kMaxDeflateRatio = 1032;
// Read with an entry's data in one pread: room for a local extra field the directory does not show.
constexpr std::size_t kLocalExtraSlack = 64;

[[noreturn]] void refuse(const std::string& description, const std::string& why) {
  throw Exception("cannot read " + description + ": " + why);
}

// The checks once an entry's data is read: as many bytes as its size says, nothing after its
// compressed stream (`trailing`), and its CRC.
void checkEnd(const std::string& description, std::uint64_t produced, std::uint64_t size, bool trailing,
              std::uint32_t crc, std::uint32_t expectedCrc) {
  if (produced != size) refuse(description, "it holds fewer bytes than its size says");
  if (trailing) refuse(description, "data follows the end of its compressed stream");
  if (crc != expectedCrc) refuse(description, "CRC error: the data does not match its checksum");
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
    const bool trailing = inflate_ && (z_.avail_in != 0 || remaining_ != 0);
    if (check_) checkEnd(description_, produced_, expectedSize_, trailing, crc_, expectedCrc_);
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
  directory_ = std::make_shared<const CentralDirectory>(CentralDirectory::read(fd.get(), narrowPath_));
  fd_ = fd.release();
}

void ZipPhysicalPackage::closeArchive() noexcept {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  directory_.reset();
}

const std::vector<ZipEntry>& ZipPhysicalPackage::getEntries() const {
  static const std::vector<ZipEntry> none;
  return directory_ ? directory_->records() : none;
}

std::string ZipPhysicalPackage::entryDefect(std::uint64_t index) const {
  const ZipEntry& e = getEntries().at(index);
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
  const std::vector<ZipEntry>& entries = getEntries();
  const std::string description = "entry " + std::to_string(index) +
                                  (index < entries.size() ? " '" + std::string(entries[index].name) + "'" : std::string()) +
                                  " of '" + narrowPath_ + "'";
  if (index >= entries.size()) throw Exception("cannot open " + description + ": no such entry");
  if (const std::string defect = raw ? std::string() : entryDefect(index); !defect.empty()) {
    throw Exception("cannot open " + description + ": " + defect);
  }
  const ZipEntry& r = entries[index];
  const auto compressed = static_cast<std::size_t>(r.compressedSize);
  std::uint8_t header[kLocalHeaderSize];
  std::size_t want = kLocalHeaderSize;
  std::uint8_t* into = header;
  if (whole != nullptr) {  // the header, a guess at its name and extra field, and the data in one read
    want += r.name.size() + kLocalExtraSlack + compressed;
    if (whole->size() < want) whole->resize(want);
    into = whole->data();
  }
  const std::size_t got = detail::preadFull(fd_, into, want, r.localHeaderOffset, narrowPath_);
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
    if (detail::preadFull(fd_, whole->data() + got, headerLength + compressed - got, r.localHeaderOffset + got, narrowPath_) !=
        headerLength + compressed - got) {
      refuse(description, "the file ends early");
    }
  }
  return {r, dataOffset, headerLength, description};
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
  const std::vector<ZipEntry>& entries = getEntries();
  if (index < entries.size() && entries[index].compression == Compression::Deflated &&
      entries[index].compressedSize > entries[index].size + entries[index].size / 8 + 1024) {
    const auto stream = openEntry(index);
    out.resize(static_cast<std::size_t>(entries[index].size));
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
  std::size_t in = compressed;
  std::size_t produced = size;
  if (!deflated) {
    std::copy_n(data, size, out.data());
  } else {
    const std::unique_ptr<libdeflate_decompressor, decltype(&libdeflate_free_decompressor)> inflater(
        libdeflate_alloc_decompressor(), &libdeflate_free_decompressor);
    if (!inflater) throw std::bad_alloc();
    const libdeflate_result result =
        libdeflate_deflate_decompress_ex(inflater.get(), data, compressed, out.data(), size, &in, &produced);
    if (result == LIBDEFLATE_INSUFFICIENT_SPACE) refuse(at.description, "it holds more bytes than its size says");
    if (result != LIBDEFLATE_SUCCESS) refuse(at.description, "its compressed data is corrupt");
  }
  checkEnd(at.description, produced, size, in != compressed, libdeflate_crc32(0, out.data(), size), e.crc);
}

std::unique_ptr<ZipWriter> ZipPhysicalPackage::createWriter() {
  return std::unique_ptr<ZipWriter>(new ZipWriter(*this));
}

}  // namespace opc::zippackage
