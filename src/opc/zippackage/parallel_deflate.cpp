#include "opc/zippackage/parallel_deflate.h"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

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

// Reads up to `limit` bytes; the stream's end comes first for every source the pipeline gets.
std::string readUpTo(const ContentSource& source, std::uint64_t limit) {
  std::string bytes;
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
  return bytes;
}

DeflatedEntry deflateWhole(libdeflate_compressor* compressor, const ContentSource& source) {
  DeflatedEntry entry;
  const std::string bytes = readUpTo(source, kWholeEntryLimit + 1);
  if (bytes.size() > kWholeEntryLimit) throw Exception("the content grew past the size it had when added");
  entry.size = bytes.size();
  entry.crc = libdeflate_crc32(0, bytes.data(), bytes.size());
  entry.compressed.resize(libdeflate_deflate_compress_bound(compressor, bytes.size()));
  const std::size_t n = libdeflate_deflate_compress(compressor, bytes.data(), bytes.size(), entry.compressed.data(),
                                                    entry.compressed.size());
  if (n == 0) throw Exception("deflate output exceeded its bound");
  entry.compressed.resize(n);
  entry.compressed.shrink_to_fit();
  return entry;
}

}  // namespace

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
  const std::string sample = readUpTo(source, kSample);
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
      result = deflateWhole(compressor.get(), *job.source);
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
