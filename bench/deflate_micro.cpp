// Micro-benchmarks of the writer's deflate in pieces: one large entry with one worker and with two,
// and what joining a piece costs. Bytes/s counts input bytes. With ZVBENCH_DEFLATE_FILE=path one
// large file is deflated in pieces (skipped otherwise); bytes/s over the process's CPU time is the
// speed per core, "ratio" the compressed share.
#include <benchmark/benchmark.h>

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

void BM_DeflateInPieces(benchmark::State& state) {
  opc::detail::WorkQueue work(static_cast<unsigned>(state.range(0)), 64);
  const opc::detail::MemoryContentSource source(text(32u << 20, 7));
  for (auto _ : state) benchmark::DoNotOptimize(deflateInPieces(source, [](std::string_view) {}, work, "bench"));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * (32 << 20));
}
BENCHMARK(BM_DeflateInPieces)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

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
  opc::detail::WorkQueue work(static_cast<unsigned>(state.range(0)), 64);
  const opc::detail::MemoryContentSource source(readWhole(path));
  const std::uint64_t size = *source.size();
  if (size == 0) {
    state.SkipWithError("ZVBENCH_DEFLATE_FILE is empty or unreadable");
    return;
  }
  std::uint64_t written = 0;
  for (auto _ : state) {
    written = 0;
    benchmark::DoNotOptimize(
        deflateInPieces(source, [&](std::string_view piece) { written += piece.size(); }, work, "bench"));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
  state.counters["ratio"] = static_cast<double>(written) / static_cast<double>(size);
}
BENCHMARK(BM_DeflateFileInPieces)->Arg(1)->Arg(2)->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

// What joining costs: the inflate that finds a piece's final block, per input byte of the piece.
void BM_UnfinishPiece(benchmark::State& state) {
  const char* path = std::getenv("ZVBENCH_DEFLATE_FILE");
  std::string piece = path != nullptr ? readWhole(path) : text(kPieceSize, 3);
  piece.resize(std::min(piece.size(), kPieceSize));
  std::string deflated;
  deflateInto(makeCompressor(kDeflateLevel).get(), piece.data(), piece.size(), deflated);
  for (auto _ : state) {
    std::string copy = deflated;
    unfinishStream(copy);
    benchmark::DoNotOptimize(copy);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * piece.size()));
}
BENCHMARK(BM_UnfinishPiece)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
