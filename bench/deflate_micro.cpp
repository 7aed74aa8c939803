// Micro-benchmarks of the writer's deflate paths: many small entries through the pipeline, and one
// large entry in pieces, each with one thread and with every core. Bytes/s counts input bytes.
//
// Two more take real data when given it (they are skipped otherwise):
//   ZVBENCH_DEFLATE_FILE=path  one large file deflated in pieces; bytes/s over the process's CPU
//                              time is the speed per core, "ratio" the compressed share.
//   ZVBENCH_TREE=folder        the 16 largest files of a tree that are not already-compressed
//                              formats, each stored, deflated whole or in pieces as the writer
//                              chooses; "compressed" is the total the package spends on them.
#include <benchmark/benchmark.h>
#include <libdeflate.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "opc/detail/content_sources.h"
#include "opc/zippackage/parallel_deflate.h"
#include "sample_data.h"

namespace {

using zvbench::text;

using namespace opc::zippackage;

void BM_PipelineSmallEntries(benchmark::State& state) {
  const unsigned threads = static_cast<unsigned>(state.range(0));
  std::vector<std::shared_ptr<const opc::ContentSource>> sources;
  for (unsigned i = 0; i < 400; ++i) sources.push_back(std::make_shared<opc::detail::MemoryContentSource>(text(13000, i)));
  for (auto _ : state) {
    DeflatePipeline pipeline(threads);
    for (const auto& s : sources) (void)pipeline.add(s);
    pipeline.start();
    for (std::size_t i = 0; i < sources.size(); ++i) benchmark::DoNotOptimize(pipeline.take(i));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * 400 * 13000);
}
BENCHMARK(BM_PipelineSmallEntries)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_DeflateInPieces(benchmark::State& state) {
  const unsigned threads = static_cast<unsigned>(state.range(0));
  const opc::detail::MemoryContentSource source(text(32u << 20, 7));
  struct : OutputSink {
    void append(const std::uint8_t*, std::size_t) override {}
  } sink;
  for (auto _ : state) benchmark::DoNotOptimize(deflateInPieces(source, sink, threads));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * (32 << 20));
}
BENCHMARK(BM_DeflateInPieces)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

struct Discard : OutputSink {
  std::uint64_t bytes = 0;
  void append(const std::uint8_t*, std::size_t size) override { bytes += size; }
};

std::string readWhole(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void BM_DeflateFileInPieces(benchmark::State& state) {
  const char* path = std::getenv("ZVBENCH_DEFLATE_FILE");
  if (path == nullptr) {
    state.SkipWithError("ZVBENCH_DEFLATE_FILE is not set");
    return;
  }
  const unsigned threads = static_cast<unsigned>(state.range(0));
  const opc::detail::MemoryContentSource source(readWhole(path));
  const std::uint64_t size = *source.size();
  if (size == 0) {
    state.SkipWithError("ZVBENCH_DEFLATE_FILE is empty or unreadable");
    return;
  }
  Discard sink;
  for (auto _ : state) {
    sink.bytes = 0;
    benchmark::DoNotOptimize(deflateInPieces(source, sink, threads));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
  state.counters["ratio"] = static_cast<double>(sink.bytes) / static_cast<double>(size);
}
BENCHMARK(BM_DeflateFileInPieces)->Arg(1)->Arg(2)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

// What joining costs: the inflate that finds a piece's final block, per input byte of the piece.
void BM_UnfinishPiece(benchmark::State& state) {
  const char* path = std::getenv("ZVBENCH_DEFLATE_FILE");
  std::string piece = path != nullptr ? readWhole(path) : text(kPieceSize, 3);
  piece.resize(std::min(piece.size(), kPieceSize));
  libdeflate_compressor* compressor = libdeflate_alloc_compressor(kDeflateLevel);
  std::string deflated(libdeflate_deflate_compress_bound(compressor, piece.size()), '\0');
  deflated.resize(
      libdeflate_deflate_compress(compressor, piece.data(), piece.size(), deflated.data(), deflated.size()));
  libdeflate_free_compressor(compressor);
  for (auto _ : state) {
    std::string copy = deflated;
    unfinishStream(copy);
    benchmark::DoNotOptimize(copy);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * piece.size()));
}
BENCHMARK(BM_UnfinishPiece)->Unit(benchmark::kMillisecond);

void BM_TreeLargeFiles(benchmark::State& state) {
  const char* root = std::getenv("ZVBENCH_TREE");
  if (root == nullptr) {
    state.SkipWithError("ZVBENCH_TREE is not set");
    return;
  }
  std::vector<std::pair<std::uintmax_t, std::string>> files;
  for (const auto& e : std::filesystem::recursive_directory_iterator(root)) {
    if (e.is_regular_file() && !isCompressedFormat(e.path().string())) files.emplace_back(e.file_size(), e.path());
  }
  std::sort(files.begin(), files.end(), std::greater<>());
  files.resize(std::min<std::size_t>(files.size(), 16));
  std::uint64_t input = 0, compressed = 0, stored = 0;
  for (auto _ : state) {
    input = compressed = stored = 0;
    for (const auto& [size, path] : files) {
      const opc::detail::MemoryContentSource source(readWhole(path));
      input += size;
      if (size > kWholeEntryLimit && !worthDeflating(source)) {
        stored += size;
        compressed += size;
      } else if (size <= kWholeEntryLimit) {
        DeflatePipeline pipeline(1);
        (void)pipeline.add(std::make_shared<opc::detail::MemoryContentSource>(source));
        pipeline.start();
        compressed += pipeline.take(0).compressed.size();
      } else {
        Discard sink;
        compressed += deflateInPieces(source, sink, static_cast<unsigned>(state.range(0))).compressedSize;
      }
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * input));
  state.counters["compressed"] = static_cast<double>(compressed);
  state.counters["stored"] = static_cast<double>(stored);
  state.counters["files"] = static_cast<double>(files.size());
}
BENCHMARK(BM_TreeLargeFiles)
    ->Arg(2)
    ->Iterations(1)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
