// Boost.Graph's strong_components on the graphs of bench_cycles.cpp, given as integers:
// the yardstick for detail::strongly_connected. Built only when CMake finds Boost.Graph.
#include <benchmark/benchmark.h>

#include <boost/graph/adjacency_list.hpp>
#include <boost/graph/strong_components.hpp>

#include "bench_support.h"
#include "graph_inputs.h"

namespace {

using quarry::bench::graph_input;
using quarry::bench::PeakMemory;
using quarry::bench::shape_arg;
using Graph = boost::adjacency_list<boost::vecS, boost::vecS, boost::directedS>;

Graph build(const quarry::bench::GraphInput& input) {
  Graph graph(input.names.size());
  for (const auto& [source, target] : input.edges)
    boost::add_edge(source, target, graph);
  return graph;
}

std::size_t components_of(const Graph& graph) {
  std::vector<std::size_t> component(boost::num_vertices(graph));
  return boost::strong_components(
      graph,
      boost::make_iterator_property_map(component.begin(), boost::get(boost::vertex_index, graph)));
}

// strong_components alone, on a graph built beforehand.
void BM_BoostSccSearch(benchmark::State& state) {
  const Graph graph = build(graph_input(shape_arg(state.range(0))));
  std::size_t components = 0;
  PeakMemory memory;
  for (auto _ : state) {
    components = components_of(graph);
    benchmark::DoNotOptimize(components);
  }
  memory.report(state);
  state.counters["components"] = static_cast<double>(components);
}

// The graph built from the integer edges, in order, then strong_components.
void BM_BoostSccFromEdges(benchmark::State& state) {
  const auto& input = graph_input(shape_arg(state.range(0)));
  std::size_t components = 0;
  PeakMemory memory;
  for (auto _ : state) {
    const Graph graph = build(input);
    components = components_of(graph);
    benchmark::DoNotOptimize(components);
  }
  memory.report(state);
  state.counters["components"] = static_cast<double>(components);
}

}  // namespace

BENCHMARK(BM_BoostSccSearch)->ArgName("chain")->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BoostSccFromEdges)->ArgName("chain")->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
