// The circular-dependency queries: the dependency graph of components or of production
// files, condensed into its cycles.
#include <algorithm>
#include <string>

#include "models/edge.h"
#include "storage/repository_graph.h"
#include "storage/repository_quality.h"
#include "utils/path_filter.h"

namespace quarry {

namespace {

using detail::IdPositions;
using detail::RowScan;

// Sorts `pairs` and drops the repeats.
void sort_unique(std::vector<std::uint64_t>& pairs) {
  std::sort(pairs.begin(), pairs.end());
  pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
}

}  // namespace

std::string detail::production_file_dependencies_sql() {
  const std::string sources = sql_test_path_filter("sf", true, "id").first;
  const std::string targets = sql_test_path_filter("tf", true, "id").first;
  return "SELECT DISTINCT sf.path, tf.path FROM edges e JOIN symbols ss ON e.source_id = ss.id "
         "JOIN symbols ts ON e.target_id = ts.id JOIN files sf ON ss.file_id = sf.id JOIN files "
         "tf ON ts.file_id = tf.id WHERE sf.id != tf.id AND NOT " +
         detail::GUESSED_SQL + " AND e." + std::string(CODE_EDGE_SQL) + " AND " + sources +
         " AND " + targets;
}

std::vector<CycleComponent> QualityQueries::find_circular_dependencies(std::string_view level) {
  const DependencyGraph graph = dependency_graph(level);
  return condense_cycles(graph, level == "component" ? "component" : "file");
}

DependencyGraph QualityQueries::dependency_graph(std::string_view level) {
  DependencyGraph::Builder graph;
  const auto depend = [&graph](std::string_view source, std::string_view target) {
    graph.add_edge(source, target);
    graph.add_node(target);
  };
  if (level == "component") {
    for (const ComponentDependency& dependency : get_component_dependencies(true))
      depend(dependency.source, dependency.target);
  } else {
    const FileDependencies files = scan_file_dependencies();
    for (const auto& [source, target] : files.pairs)
      depend(files.paths[source], files.paths[target]);
  }
  return graph.build();
}

std::vector<std::pair<std::string, std::string>> QualityQueries::production_file_dependencies() {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const Row& row : db().fetchall(detail::production_file_dependencies_sql()))
    pairs.emplace_back(to_text(row.at(0)), to_text(row.at(1)));
  return pairs;
}

FileDependencies QualityQueries::scan_file_dependencies() {
  Database& database = db();

  // Production files; a file's node is the position of its path among the distinct paths.
  std::vector<std::int64_t> file_ids;
  std::vector<std::string> file_paths;
  {
    RowScan files(database, "SELECT f.id, f.path FROM files f WHERE " +
                                sql_test_path_filter("f", true, "id").first);
    while (files.next()) {
      file_ids.push_back(files.integer(0));
      file_paths.emplace_back(files.text(1));
    }
  }
  FileDependencies found;
  found.paths = file_paths;
  std::sort(found.paths.begin(), found.paths.end());
  found.paths.erase(std::unique(found.paths.begin(), found.paths.end()), found.paths.end());
  std::vector<std::uint32_t> node_of_file(file_ids.size());
  for (std::size_t i = 0; i < file_ids.size(); ++i) {
    node_of_file[i] = static_cast<std::uint32_t>(
        std::lower_bound(found.paths.begin(), found.paths.end(), file_paths[i]) -
        found.paths.begin());
  }
  file_paths = {};
  const IdPositions file_positions(file_ids);

  // The production file (its position in file_ids) of every symbol, or none.
  std::vector<std::int64_t> symbol_ids;
  std::vector<std::uint32_t> file_of_symbol;
  {
    RowScan symbols(database, "SELECT id, file_id FROM symbols");
    while (symbols.next()) {
      symbol_ids.push_back(symbols.integer(0));
      file_of_symbol.push_back(symbols.is_integer(1) ? file_positions.find(symbols.integer(1))
                                                     : IdPositions::NONE);
    }
  }
  const IdPositions symbol_positions(symbol_ids);
  symbol_ids = {};
  const auto file_of = [&](std::int64_t symbol) {
    const std::uint32_t position = symbol_positions.find(symbol);
    return position == IdPositions::NONE ? IdPositions::NONE : file_of_symbol[position];
  };

  // Each code edge that is no guess, between symbols of two different production files,
  // as the pair of their nodes. The pairs are deduplicated whenever their buffer is full,
  // so it holds little more than the distinct pairs.
  std::vector<std::uint64_t> pairs;
  pairs.reserve(1 << 16);
  RowScan edges(database, "SELECT e.source_id, e.target_id FROM edges e WHERE NOT " +
                              detail::GUESSED_SQL + " AND e." + std::string(CODE_EDGE_SQL));
  while (edges.next()) {
    if (!edges.is_integer(0) || !edges.is_integer(1)) continue;
    const std::uint32_t source = file_of(edges.integer(0));
    const std::uint32_t target = file_of(edges.integer(1));
    if (source == IdPositions::NONE || target == IdPositions::NONE || source == target) continue;
    if (pairs.size() == pairs.capacity()) {
      sort_unique(pairs);
      if (pairs.size() * 2 > pairs.capacity()) pairs.reserve(pairs.capacity() * 2);
    }
    pairs.push_back(std::uint64_t{node_of_file[source]} << 32 | node_of_file[target]);
  }
  sort_unique(pairs);
  found.pairs.reserve(pairs.size());
  for (const std::uint64_t pair : pairs)
    found.pairs.emplace_back(static_cast<std::uint32_t>(pair >> 32),
                             static_cast<std::uint32_t>(pair));
  return found;
}

}  // namespace quarry
