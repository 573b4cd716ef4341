#include "storage/repository_graph.h"

#include <array>
#include <string_view>

namespace quarry {

std::map<std::string, std::int64_t> GraphQueries::get_stats() {
  static constexpr std::array<std::string_view, 5> TABLES{"files", "symbols", "edges", "components",
                                                          "pending_references"};
  std::string sql = "SELECT ";
  for (std::size_t i = 0; i < TABLES.size(); ++i) {
    if (i > 0) sql += ", ";
    sql += "(SELECT COUNT(*) FROM ";
    sql += TABLES[i];
    sql += ")";
  }
  const auto row = db().fetchone(sql);
  std::map<std::string, std::int64_t> stats;
  for (std::size_t i = 0; i < TABLES.size(); ++i) {
    stats.emplace(std::string(TABLES[i]), row ? to_int(row->at(i)) : 0);
  }
  return stats;
}

}  // namespace quarry
