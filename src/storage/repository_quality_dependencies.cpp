// The circular-dependency queries: the dependency graph of components or of production
// files, condensed into its cycles.
#include <string>

#include "models/edge.h"
#include "storage/repository_quality.h"
#include "utils/path_filter.h"

namespace quarry {

std::vector<CycleComponent> QualityQueries::find_circular_dependencies(std::string_view level) {
  const DependencyGraph graph = dependency_graph(level);
  return condense_cycles(graph, level == "component" ? "component" : "file");
}

DependencyGraph QualityQueries::dependency_graph(std::string_view level) {
  DependencyGraph::Builder graph;
  const auto depend = [&graph](const std::string& source, const std::string& target) {
    graph.add_edge(source, target);
    graph.add_node(target);
  };
  if (level == "component") {
    for (const ComponentDependency& dependency : get_component_dependencies(true))
      depend(dependency.source, dependency.target);
  } else {
    for (const auto& [source, target] : production_file_dependencies())
      depend(source, target);
  }
  return graph.build();
}

std::vector<std::pair<std::string, std::string>> QualityQueries::production_file_dependencies() {
  const std::string sources = sql_test_path_filter("sf", true, "id").first;
  const std::string targets = sql_test_path_filter("tf", true, "id").first;
  const std::string sql =
      "SELECT DISTINCT sf.path, tf.path FROM edges e JOIN symbols ss ON e.source_id = ss.id "
      "JOIN symbols ts ON e.target_id = ts.id JOIN files sf ON ss.file_id = sf.id JOIN files "
      "tf ON ts.file_id = tf.id WHERE sf.id != tf.id AND NOT " +
      detail::GUESSED_SQL + " AND e." + std::string(CODE_EDGE_SQL) + " AND " + sources + " AND " +
      targets;
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const Row& row : db().fetchall(sql))
    pairs.emplace_back(to_text(row.at(0)), to_text(row.at(1)));
  return pairs;
}

}  // namespace quarry
