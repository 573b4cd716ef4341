// The graphs of the cycle benchmarks: a million nodes named like the files of a
// monorepo, with edges between them given by node number.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "storage/repository_quality_cycles.h"

namespace quarry::bench {

enum class GraphShape {
  random,  // 1,000,000 nodes, 4,000,000 edges between nodes drawn at random
  chain,   // 1,000,000 nodes, each depending on the next
};

struct GraphInput {
  std::vector<std::string> names;                              // node n's name
  std::vector<std::pair<std::uint32_t, std::uint32_t>> edges;  // in insertion order
};

// The graph of `shape` (benchmark argument 0 random, 1 chain), made once per process and
// the same on every run.
const GraphInput& graph_input(GraphShape shape);
GraphShape shape_arg(std::int64_t arg);

// The graph of `input` built as the file-level cycles build theirs: for each edge, in
// order, the edge and then its target as a key.
DependencyGraph build_graph(const GraphInput& input);

}  // namespace quarry::bench
