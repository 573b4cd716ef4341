// The dead-code listing on synthetic indexes: the first page, a page far down the listing,
// and one component. Each index is generated once per size and kept between runs.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>

#include "generate_index.h"
#include "storage/repository.h"

namespace {

// An index of `symbols` symbols and five edges per symbol, generated once and kept (see
// cached_index), opened for the whole run.
quarry::Repository& repository(std::int64_t symbols) {
  static std::map<std::int64_t, std::unique_ptr<quarry::Repository>> repositories;
  auto& repo = repositories[symbols];
  if (!repo) {
    const auto path = quarry::bench::cached_index({.symbols = symbols, .edges = symbols * 5});
    repo = std::make_unique<quarry::Repository>(path.string());
  }
  return *repo;
}

void run(benchmark::State& state, quarry::DeadCodeOptions options) {
  auto& repo = repository(state.range(0));
  std::int64_t total = 0;
  for (auto _ : state) {
    const auto page = repo.get_dead_code(options);
    total = page.total_count;
    benchmark::DoNotOptimize(page);
  }
  state.counters["candidates"] = static_cast<double>(total);
}

void BM_DeadCodeFirstPage(benchmark::State& state) {
  run(state, {.runtime_members = {"get", "append", "items"}});
}
void BM_DeadCodeDeepPage(benchmark::State& state) {
  run(state, {.limit = 100, .offset = state.range(0) / 10});
}
void BM_DeadCodeComponent(benchmark::State& state) {
  run(state, {.component = "comp3"});
}

}  // namespace

BENCHMARK(BM_DeadCodeFirstPage)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeadCodeDeepPage)->Arg(100'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeadCodeComponent)->Arg(100'000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
