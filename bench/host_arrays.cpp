// Micro-benchmarks of the reference host's arrays with a package's file list: 20,000 paths as a 1xN
// cell of char rows, made, written to JSON text (straight and through the document), read back from
// JSON text, and freed. Items/s counts strings.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "host/json/json.h"
#include "host/matrix.h"
#include "host/qx.h"

namespace {

constexpr qxSize kNames = 20000;

// Paths like a generated add-on tree's: folders, some non-ASCII, about 60 bytes each.
std::vector<std::string> names() {
  std::vector<std::string> out;
  for (qxSize k = 0; k < kNames; ++k) {
    out.push_back("/donn\xC3\xA9" "es_" + std::to_string(k % 97) + "/solver_" + std::to_string(k % 13) +
                  "/matrix ops (draft)_" + std::to_string(k) + ".m");
  }
  return out;
}

matrix::unique_qxarray_ptr list(const std::vector<std::string>& paths) {
  const qxSize dims[] = {1, paths.size()};
  matrix::unique_qxarray_ptr cell(qxCreateCellArray(2, dims));
  for (qxSize k = 0; k < paths.size(); ++k) qxSetCell(cell.get(), k, qxCreateString(paths[k].c_str()));
  return cell;
}

void MakeList(benchmark::State& state) {
  const auto paths = names();
  for (auto _ : state) {
    auto cell = list(paths);
    benchmark::DoNotOptimize(cell.get());
    state.PauseTiming();
    cell.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kNames));
}

void FreeList(benchmark::State& state) {
  const auto paths = names();
  for (auto _ : state) {
    state.PauseTiming();
    auto cell = list(paths);
    state.ResumeTiming();
    cell.reset();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kNames));
}

void ListToText(benchmark::State& state) {
  const auto cell = list(names());
  for (auto _ : state) {
    std::string text = zvhost::json::toText(cell.get());
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kNames));
}

void ListToTextThroughDocument(benchmark::State& state) {
  const auto cell = list(names());
  for (auto _ : state) {
    std::string text = zvhost::json::fromArray(cell.get()).dump();
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kNames));
}

void ListFromText(benchmark::State& state) {
  const std::string text = zvhost::json::toText(list(names()).get());
  for (auto _ : state) {
    auto cell = zvhost::json::toOwnedArray(zvhost::json::Json::parse(text));
    benchmark::DoNotOptimize(cell.get());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kNames));
}

BENCHMARK(MakeList)->Unit(benchmark::kMillisecond);
BENCHMARK(FreeList)->Unit(benchmark::kMillisecond);
BENCHMARK(ListToText)->Unit(benchmark::kMillisecond);
BENCHMARK(ListToTextThroughDocument)->Unit(benchmark::kMillisecond);
BENCHMARK(ListFromText)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
