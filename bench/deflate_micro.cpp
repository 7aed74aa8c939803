// Micro-benchmarks of the writer's deflate paths: many small entries through the pipeline, and one
// large entry in pieces, each with one thread and with every core. Bytes/s counts input bytes.
#include <benchmark/benchmark.h>

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
  struct Discard : OutputSink {
    void append(const std::uint8_t*, std::size_t) override {}
  } sink;
  for (auto _ : state) benchmark::DoNotOptimize(deflateInPieces(source, sink, threads));
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * (32 << 20));
}
BENCHMARK(BM_DeflateInPieces)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
