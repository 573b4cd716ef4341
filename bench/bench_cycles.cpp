// Strongly connected components of a million-node graph, random (4,000,000 edges) or a
// chain (argument 0 or 1): the search alone on a built graph, and the whole way from
// edges between names to components. When Boost.Graph is found, bench_cycles_boost.cpp
// adds its strong_components on the same edges as the yardstick, in the same run.
#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "graph_inputs.h"

namespace {

using quarry::bench::graph_input;
using quarry::bench::PeakMemory;
using quarry::bench::shape_arg;

// The search alone, on a graph built beforehand.
void BM_SccSearch(benchmark::State& state) {
  const quarry::DependencyGraph graph =
      quarry::bench::build_graph(graph_input(shape_arg(state.range(0))));
  std::size_t components = 0;
  PeakMemory memory;
  for (auto _ : state) {
    const quarry::StrongComponents found = quarry::detail::strongly_connected(graph);
    components = found.size();
    benchmark::DoNotOptimize(found);
  }
  memory.report(state);
  state.counters["components"] = static_cast<double>(components);
}

// From edges between names, in insertion order, to components: the graph is built as the
// file-level cycles build it, then searched.
void BM_SccFromNames(benchmark::State& state) {
  const auto& input = graph_input(shape_arg(state.range(0)));
  std::size_t components = 0;
  PeakMemory memory;
  for (auto _ : state) {
    const quarry::DependencyGraph graph = quarry::bench::build_graph(input);
    const quarry::StrongComponents found = quarry::detail::strongly_connected(graph);
    components = found.size();
    benchmark::DoNotOptimize(found);
  }
  memory.report(state);
  state.counters["components"] = static_cast<double>(components);
}

}  // namespace

BENCHMARK(BM_SccSearch)->ArgName("chain")->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SccFromNames)->ArgName("chain")->DenseRange(0, 1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
