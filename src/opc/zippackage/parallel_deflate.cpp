#include "opc/zippackage/parallel_deflate.h"

#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <cstring>

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
};

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

// One piece of a large entry: zlib, because a piece must end in a sync flush so that the next one can
// follow it inside the same stream, which libdeflate (whole buffers, always final) cannot do.
std::string deflatePiece(const std::uint8_t* data, std::size_t size, const std::uint8_t* dictionary,
                         std::size_t dictionarySize, bool last) {
  z_stream z{};
  if (deflateInit2(&z, kDeflateLevel, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw Exception("cannot start deflate");
  }
  std::string out;
  try {
    if (dictionarySize > 0 &&
        deflateSetDictionary(&z, dictionary, static_cast<uInt>(dictionarySize)) != Z_OK) {
      throw Exception("cannot prime deflate");
    }
    out.resize(deflateBound(&z, size) + 64);
    z.next_in = const_cast<std::uint8_t*>(data);
    z.avail_in = static_cast<uInt>(size);
    z.next_out = reinterpret_cast<std::uint8_t*>(out.data());
    z.avail_out = static_cast<uInt>(out.size());
    const int result = deflate(&z, last ? Z_FINISH : Z_SYNC_FLUSH);
    if ((last && result != Z_STREAM_END) || (!last && (result != Z_OK || z.avail_out == 0 || z.avail_in != 0))) {
      throw Exception("deflate of a piece failed");
    }
    out.resize(out.size() - z.avail_out);
  } catch (...) {
    deflateEnd(&z);
    throw;
  }
  deflateEnd(&z);
  return out;
}

}  // namespace

PieceStream deflateInPieces(const ContentSource& source, OutputSink& out, unsigned threads) {
  constexpr std::size_t kDictionary = 32u << 10;
  const std::optional<std::uint64_t> expected = source.size();
  if (!expected) throw Exception("a source of unknown size cannot be deflated in pieces");
  threads = std::max(1u, threads);
  auto stream = source.openStream();
  PieceStream result;
  // Each round reads `threads` pieces after the 32 KiB that primes the first of them.
  std::vector<std::uint8_t> buffer(kDictionary + threads * kPieceSize);
  std::size_t primed = 0;  // bytes of the previous round's end at the front of the buffer
  bool end = false;
  while (!end) {
    // Pieces start at multiples of kPieceSize whatever the thread count, so the stream does not
    // depend on it.
    const std::size_t want = primed + threads * kPieceSize;
    std::size_t filled = primed;
    while (filled < want) {
      const std::size_t n = stream->read(buffer.data() + filled, want - filled);
      if (n == 0) break;
      filled += n;
    }
    const std::size_t fresh = filled - primed;
    result.crc = libdeflate_crc32(result.crc, buffer.data() + primed, fresh);
    result.size += fresh;
    if (result.size > *expected) throw Exception("the content grew past the size it had when added");
    end = result.size == *expected;
    if (end) {
      std::uint8_t probe;
      if (stream->read(&probe, 1) != 0) throw Exception("the content grew past the size it had when added");
    } else if (filled < want) {
      throw Exception("the content shrank below the size it had when added");
    }
    const std::size_t pieces = std::max<std::size_t>(1, (fresh + kPieceSize - 1) / kPieceSize);
    std::vector<std::string> outputs(pieces);
    std::vector<std::string> failures(pieces);
    auto run = [&](std::size_t i) {
      try {
        const std::size_t begin = primed + i * kPieceSize;
        const std::size_t length = std::min(kPieceSize, filled - begin);
        const std::size_t dictionary = std::min(kDictionary, begin);
        outputs[i] = deflatePiece(buffer.data() + begin, length, buffer.data() + begin - dictionary, dictionary,
                                  end && i + 1 == pieces);
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
    primed = std::min(kDictionary, filled);
    std::memmove(buffer.data(), buffer.data() + filled - primed, primed);
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
  jobs_.push_back(Job{std::move(source), {}, false});
  return jobs_.size() - 1;
}

void DeflatePipeline::start() {
  const unsigned count = static_cast<unsigned>(std::min<std::size_t>(threads_, jobs_.size()));
  for (unsigned i = 0; i < count; ++i) workers_.emplace_back([this] { work(); });
}

DeflatedEntry DeflatePipeline::take(std::size_t ticket) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return jobs_[ticket].done; });
  DeflatedEntry result = std::move(jobs_[ticket].result);
  jobs_[ticket].source.reset();
  held_ -= std::min<std::uint64_t>(held_, result.compressed.size());
  taken_ = ticket + 1;
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
    changed_.wait(lock, [&] { return stopping_ || (next_ < jobs_.size() && (held_ < window_ || next_ == taken_)); });
    if (stopping_) return;
    Job& job = jobs_[next_++];
    lock.unlock();
    DeflatedEntry result;
    try {
      if (!failure.empty()) throw Exception(failure);
      result = deflateWhole(compressor.get(), *job.source, scratch);
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
