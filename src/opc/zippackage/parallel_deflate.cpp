#include "opc/zippackage/parallel_deflate.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "opc/exception.h"

namespace opc::zippackage {

namespace {

struct CompressorDeleter {
  void operator()(libdeflate_compressor* c) const noexcept { libdeflate_free_compressor(c); }
};
using Compressor = std::unique_ptr<libdeflate_compressor, CompressorDeleter>;

Compressor makeCompressor(int level) {
  Compressor c(libdeflate_alloc_compressor(level));
  if (!c) throw Exception("cannot allocate a deflate compressor");
  return c;
}

// Reads up to `limit` bytes into `bytes` (whose capacity is kept from one call to the next); the
// stream's end comes first for every source the pipeline gets.
void readUpTo(const ContentSource& source, std::uint64_t limit, std::string& bytes) {
  bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(source.size().value_or(limit), limit)) + 1);
  auto stream = source.openStream();
  std::size_t used = 0;
  for (;;) {
    if (used == bytes.size()) {
      if (used > limit) break;
      bytes.resize(std::min<std::size_t>(used * 2 + 4096, static_cast<std::size_t>(limit) + 1));
    }
    const std::size_t n = stream->read(reinterpret_cast<std::uint8_t*>(bytes.data()) + used, bytes.size() - used);
    if (n == 0) break;
    used += n;
  }
  bytes.resize(std::min<std::size_t>(used, static_cast<std::size_t>(limit)));
}

// What one worker reuses from entry to entry, so that deflating many files does not allocate and
// free a megabyte or two for each.
struct Scratch {
  std::string input;
  std::string output;
  void swap(Scratch& other) noexcept {
    input.swap(other.input);
    output.swap(other.output);
  }
};
constexpr std::size_t kKeptScratch = 256u << 10;

DeflatedEntry deflateWhole(libdeflate_compressor* compressor, const ContentSource& source, Scratch& scratch) {
  DeflatedEntry entry;
  readUpTo(source, kWholeEntryLimit + 1, scratch.input);
  const std::string& bytes = scratch.input;
  if (bytes.size() > kWholeEntryLimit) throw Exception("the content grew past the size it had when added");
  entry.size = bytes.size();
  entry.crc = libdeflate_crc32(0, bytes.data(), bytes.size());
  const std::size_t bound = libdeflate_deflate_compress_bound(compressor, bytes.size());
  if (scratch.output.size() < bound) scratch.output.resize(bound);
  const std::size_t n = libdeflate_deflate_compress(compressor, bytes.data(), bytes.size(), scratch.output.data(),
                                                    scratch.output.size());
  if (n == 0) throw Exception("deflate output exceeded its bound");
  entry.compressed.assign(scratch.output.data(), n);
  return entry;
}

// Where a raw deflate stream's blocks lie: the bit at which its final block's header starts (the
// BFINAL bit) and the bit just past that block's end-of-block code.
struct FinalBlock {
  std::uint64_t headerBit = 0;
  std::uint64_t endBit = 0;
};

// Inflates `stream` into a small window, overwritten as often as needed, stopping at each block
// boundary to note where the next block starts. Throws opc::Exception unless `stream` is exactly one
// valid stream.
FinalBlock locateFinalBlock(const std::uint8_t* stream, std::size_t size) {
  if (size > std::numeric_limits<uInt>::max()) throw Exception("a deflated piece is too large to join");
  z_stream z{};
  if (inflateInit2(&z, -15) != Z_OK) throw Exception("cannot start inflate");
  const std::unique_ptr<z_stream, decltype(&inflateEnd)> guard(&z, &inflateEnd);
  std::vector<std::uint8_t> window(64u << 10);
  z.next_in = const_cast<std::uint8_t*>(stream);
  z.avail_in = static_cast<uInt>(size);
  FinalBlock found;
  for (;;) {
    z.next_out = window.data();
    z.avail_out = static_cast<uInt>(window.size());
    const int result = inflate(&z, Z_BLOCK);
    if (result == Z_STREAM_END) break;
    if (result != Z_OK) throw Exception("a deflated piece does not inflate");
    // Stopped between blocks: the low bits count what is left unread of the last byte taken, 64
    // says the block just ended was the final one.
    if ((z.data_type & 128) != 0) {
      const std::uint64_t bit = (size - z.avail_in) * 8u - static_cast<unsigned>(z.data_type & 7);
      if ((z.data_type & 64) != 0) {
        found.endBit = bit;
      } else {
        found.headerBit = bit;
      }
    }
  }
  if (z.avail_in != 0 || found.endBit == 0 || (stream[found.headerBit / 8] >> (found.headerBit % 8) & 1) != 1) {
    throw Exception("a deflated piece does not end as a single stream");
  }
  return found;
}

// Data that keeps more than three quarters of its size at level 1 (noisy samples, packed numbers)
// comes out no larger at level 4 than at kDeflateLevel and about a tenth faster, since the lazy
// matching of the higher levels finds little in it. The choice rests on the entry's first bytes,
// so that every piece, and the stream, is the same whatever the thread count.
int pieceLevel(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kSample = 64u << 10;
  size = std::min(size, kSample);
  if (size < kSample) return kDeflateLevel;
  const Compressor fast = makeCompressor(1);
  std::string out(libdeflate_deflate_compress_bound(fast.get(), size), '\0');
  const std::size_t n = libdeflate_deflate_compress(fast.get(), data, size, out.data(), out.size());
  return n * 4 > size * 3 ? kPoorDataLevel : kDeflateLevel;
}

// One piece of a large entry, deflated cold: libdeflate takes no preset dictionary, and what a piece
// loses for it is small next to what libdeflate gains over zlib in speed and size.
// Into `out`, whose capacity is kept from one piece to the next.
void deflatePiece(libdeflate_compressor* compressor, const std::uint8_t* data, std::size_t size, bool last,
                  std::string& out) {
  out.resize(libdeflate_deflate_compress_bound(compressor, size) + 5);
  const std::size_t n = libdeflate_deflate_compress(compressor, data, size, out.data(), out.size());
  if (n == 0) throw Exception("deflate output exceeded its bound");
  out.resize(n);
  if (!last) unfinishStream(out);
}

}  // namespace

void unfinishStream(std::string& stream) {
  auto* bytes = reinterpret_cast<std::uint8_t*>(stream.data());
  const FinalBlock last = locateFinalBlock(bytes, stream.size());
  bytes[last.headerBit / 8] &= static_cast<std::uint8_t>(~(1u << (last.headerBit % 8)));
  // The stored block's three header bits, all zero, go into the padding after the end code when it
  // has room for them, else into one more byte.
  const std::uint64_t padding = stream.size() * 8u - last.endBit;
  if (padding > 0) bytes[last.endBit / 8] &= static_cast<std::uint8_t>((1u << (last.endBit % 8)) - 1);
  if (padding < 3) stream.push_back('\0');
  stream.append("\x00\x00\xff\xff", 4);
}

PieceStream deflateInPieces(const ContentSource& source, OutputSink& out, unsigned threads) {
  const std::optional<std::uint64_t> expected = source.size();
  if (!expected) throw Exception("a source of unknown size cannot be deflated in pieces");
  // No more threads (and buffers) than the entry has pieces: a small entry on a many-core machine
  // does not take a piece's memory per core.
  const std::uint64_t pieceCount = (*expected + kPieceSize - 1) / kPieceSize;
  threads = static_cast<unsigned>(std::clamp<std::uint64_t>(pieceCount, 1, std::max(1u, threads)));
  auto stream = source.openStream();
  std::vector<Compressor> compressors;  // one per thread, made once the first bytes show the level
  PieceStream result;
  // Each round reads `threads` pieces. Pieces start at multiples of kPieceSize whatever the thread
  // count, so the stream does not depend on it.
  std::vector<std::uint8_t> buffer(threads * kPieceSize);
  std::vector<std::string> outputs(threads);
  std::vector<std::string> failures(threads);
  bool end = false;
  while (!end) {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
      const std::size_t n = stream->read(buffer.data() + filled, buffer.size() - filled);
      if (n == 0) break;
      filled += n;
    }
    result.crc = libdeflate_crc32(result.crc, buffer.data(), filled);
    result.size += filled;
    if (result.size > *expected) throw Exception("the content grew past the size it had when added");
    end = result.size == *expected;
    if (end) {
      std::uint8_t probe;
      if (stream->read(&probe, 1) != 0) throw Exception("the content grew past the size it had when added");
    } else if (filled < buffer.size()) {
      throw Exception("the content shrank below the size it had when added");
    }
    if (compressors.empty()) {
      const int level = pieceLevel(buffer.data(), filled);
      for (unsigned i = 0; i < threads; ++i) compressors.push_back(makeCompressor(level));
    }
    const std::size_t pieces = std::max<std::size_t>(1, (filled + kPieceSize - 1) / kPieceSize);
    auto run = [&](std::size_t i) {
      try {
        const std::size_t begin = i * kPieceSize;
        const std::size_t length = std::min(kPieceSize, filled - begin);
        deflatePiece(compressors[i].get(), buffer.data() + begin, length, end && i + 1 == pieces, outputs[i]);
      } catch (const std::exception& e) {
        failures[i] = e.what();
      }
    };
    std::vector<std::thread> helpers;
    for (std::size_t i = 1; i < pieces; ++i) helpers.emplace_back(run, i);
    run(0);
    for (auto& helper : helpers) helper.join();
    for (std::size_t i = 0; i < pieces; ++i) {
      if (!failures[i].empty()) throw Exception(failures[i]);
      out.append(reinterpret_cast<const std::uint8_t*>(outputs[i].data()), outputs[i].size());
      result.compressedSize += outputs[i].size();
    }
  }
  return result;
}

unsigned deflateThreads() {
  if (const char* text = std::getenv("ZVADDON_THREADS")) {
    const long n = std::strtol(text, nullptr, 10);
    if (n >= 1 && n <= 256) return static_cast<unsigned>(n);
  }
  return std::max(1u, std::thread::hardware_concurrency());
}

bool isCompressedFormat(std::string_view name) {
  static constexpr std::array<std::string_view, 31> kExtensions = {
      "png", "jpg", "jpeg", "gif", "webp", "heic", "avif", "jp2", "mp3", "m4a", "aac", "ogg", "opus", "flac", "mp4",
      "m4v", "mov", "mkv", "webm", "avi", "zip", "gz", "tgz", "bz2", "xz", "zst", "7z", "rar", "jar", "docx", "xlsx"};
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || name.size() - dot > 6 || name.find('/', dot) != std::string_view::npos) {
    return false;
  }
  std::string ext(name.substr(dot + 1));
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  return std::find(kExtensions.begin(), kExtensions.end(), ext) != kExtensions.end();
}

bool worthDeflating(const ContentSource& source) {
  constexpr std::size_t kSample = 256u << 10;
  std::string sample;
  readUpTo(source, kSample, sample);
  if (sample.empty()) return true;
  const Compressor compressor = makeCompressor(1);
  std::string out(libdeflate_deflate_compress_bound(compressor.get(), sample.size()), '\0');
  const std::size_t n =
      libdeflate_deflate_compress(compressor.get(), sample.data(), sample.size(), out.data(), out.size());
  return n != 0 && n * 100 <= sample.size() * 92;
}

DeflatePipeline::DeflatePipeline(unsigned threads, std::uint64_t window)
    : threads_(std::max(1u, threads)), window_(window) {}

DeflatePipeline::~DeflatePipeline() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  for (auto& worker : workers_) worker.join();
}

std::size_t DeflatePipeline::add(std::shared_ptr<const ContentSource> source) {
  std::size_t ticket = 0;
  {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(Job{std::move(source), {}, false});
    ticket = first_ + jobs_.size() - 1;
  }
  changed_.notify_all();
  return ticket;
}

void DeflatePipeline::start() {
  for (unsigned i = 0; i < threads_; ++i) workers_.emplace_back([this] { work(); });
}

DeflatedEntry DeflatePipeline::take(std::size_t ticket) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return jobs_[ticket - first_].done; });
  DeflatedEntry result = std::move(jobs_[ticket - first_].result);
  held_ -= std::min<std::uint64_t>(held_, result.compressed.size());
  taken_ = ticket + 1;
  // Taken jobs are done, so no worker holds them.
  while (first_ < taken_) {
    jobs_.pop_front();
    ++first_;
  }
  lock.unlock();
  changed_.notify_all();
  return result;
}

void DeflatePipeline::work() {
  Compressor compressor;
  Scratch scratch;
  std::string failure;
  try {
    compressor = makeCompressor(kDeflateLevel);
  } catch (const std::exception& e) {
    failure = e.what();
  }
  std::unique_lock lock(mutex_);
  for (;;) {
    // The job the caller waits for is always taken, whatever the window holds: no deadlock.
    changed_.wait(lock, [&] {
      return stopping_ || (next_ < first_ + jobs_.size() && (held_ < window_ || next_ == taken_));
    });
    if (stopping_) return;
    Job& job = jobs_[next_++ - first_];
    lock.unlock();
    DeflatedEntry result;
    try {
      if (!failure.empty()) throw Exception(failure);
      result = deflateWhole(compressor.get(), *job.source, scratch);
      // Most entries are small: the buffers of a large one go with it rather than stay a megabyte
      // or two a worker for the rest of the package.
      if (scratch.input.capacity() > kKeptScratch) Scratch().swap(scratch);
    } catch (const std::exception& e) {
      result = DeflatedEntry{};
      result.error = e.what();
    }
    lock.lock();
    held_ += result.compressed.size();
    job.result = std::move(result);
    job.done = true;
    changed_.notify_all();
  }
}

}  // namespace opc::zippackage
