#include "graph_inputs.h"

#include <map>
#include <random>

namespace quarry::bench {

namespace {

constexpr std::uint32_t NODES = 1'000'000;
constexpr std::size_t RANDOM_EDGES = 4'000'000;

GraphInput make_input(GraphShape shape) {
  GraphInput input;
  input.names.reserve(NODES);
  for (std::uint32_t n = 0; n < NODES; ++n) {
    input.names.push_back("comp" + std::to_string(n % 100) + "/pkg" +
                          std::to_string(n / 100 % 100) + "/module_" + std::to_string(n) + ".py");
  }
  if (shape == GraphShape::chain) {
    input.edges.reserve(NODES - 1);
    for (std::uint32_t n = 0; n + 1 < NODES; ++n)
      input.edges.emplace_back(n, n + 1);
  } else {
    std::mt19937_64 rng(42);
    input.edges.reserve(RANDOM_EDGES);
    for (std::size_t e = 0; e < RANDOM_EDGES; ++e) {
      const auto source = static_cast<std::uint32_t>(rng() % NODES);
      input.edges.emplace_back(source, static_cast<std::uint32_t>(rng() % NODES));
    }
  }
  return input;
}

}  // namespace

const GraphInput& graph_input(GraphShape shape) {
  static std::map<GraphShape, GraphInput> made;
  auto found = made.find(shape);
  if (found == made.end()) found = made.emplace(shape, make_input(shape)).first;
  return found->second;
}

GraphShape shape_arg(std::int64_t arg) {
  return arg == 0 ? GraphShape::random : GraphShape::chain;
}

DependencyGraph build_graph(const GraphInput& input) {
  DependencyGraph::Builder builder;
  for (const auto& [source, target] : input.edges) {
    builder.add_edge(input.names[source], input.names[target]);
    builder.add_node(input.names[target]);
  }
  return builder.build();
}

}  // namespace quarry::bench
