#include "storage/repository_components.h"

#include <set>

#include "models/edge.h"
#include "storage/sql_text.h"
#include "utils/path_filter.h"

namespace quarry {

std::vector<ComponentDependency> ComponentQueries::get_component_dependencies(
    bool exclude_test_files) {
  std::string sql =
      "SELECT DISTINCT sc.name, tc.name FROM edges e "
      "JOIN symbols ss ON ss.id = e.source_id JOIN symbols ts ON ts.id = e.target_id "
      "JOIN files sf ON sf.id = ss.file_id JOIN files tf ON tf.id = ts.file_id "
      "JOIN components sc ON sc.id = sf.component_id "
      "JOIN components tc ON tc.id = tf.component_id "
      "WHERE sc.id != tc.id AND NOT e.resolution IN " +
      sql_quoted_list(GUESSED_RESOLUTIONS) + " AND e." + std::string(CODE_EDGE_SQL);
  if (exclude_test_files) {
    sql += " AND " + sql_test_path_filter("sf", true).first;
    sql += " AND " + sql_test_path_filter("tf", true).first;
  }
  sql += " ORDER BY 1, 2";
  std::vector<ComponentDependency> out;
  for (const Row& row : db().fetchall(sql)) {
    out.push_back({to_text(row[0]), to_text(row[1])});
  }
  return out;
}

std::vector<std::string> ComponentQueries::get_components_for_files(
    const std::vector<std::string>& paths) {
  std::set<std::string> names;
  for_each_chunk(paths, [&](std::span<const std::string> chunk) {
    const std::string sql =
        "SELECT DISTINCT c.name FROM files f JOIN components c ON c.id = f.component_id "
        "WHERE f.path IN (" +
        placeholders(chunk.size()) + ")";
    for (const Row& row : db().fetchall(sql, Params(chunk.begin(), chunk.end()))) {
      names.insert(to_text(row[0]));
    }
  });
  return {names.begin(), names.end()};
}

}  // namespace quarry
