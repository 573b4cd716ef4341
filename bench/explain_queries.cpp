// explain_queries [S|M|L]: prints the query plan SQLite chooses for each statement of the
// dead-code first page (in memory and by statements), a one-id caller lookup and the
// file-level cycles, on the generated index of that scale (default L), as the operations run
// them (traced, values bound).
#include <iostream>
#include <map>
#include <string>

#include "bench_support.h"

namespace {

void print_plan(quarry::Database& db, const std::string& title, const std::string& sql) {
  std::cout << "-- " << title << "\n";
  std::map<std::int64_t, int> depth{{0, 0}};
  for (const quarry::Row& row : db.fetchall("EXPLAIN QUERY PLAN " + sql)) {
    const std::int64_t id = quarry::to_int(row.at(0));
    const int level = depth[quarry::to_int(row.at(1))] + 1;
    depth[id] = level;
    std::cout << std::string(static_cast<std::size_t>(level - 1) * 2, ' ') << "`--"
              << quarry::to_text(row.at(3)) << "\n";
  }
  std::cout << "\n";
}

// The plan of each distinct statement text, in the order of first run, with the number of
// runs of those run more than once (a lookup repeated per symbol, say).
void explain(quarry::Database& db, const std::string& what,
             const std::vector<quarry::bench::TracedStatement>& statements) {
  std::vector<const quarry::bench::TracedStatement*> distinct;
  std::map<std::string, std::size_t> runs;
  for (const auto& statement : statements) {
    if (runs[statement.sql]++ == 0) distinct.push_back(&statement);
  }
  for (std::size_t i = 0; i < distinct.size(); ++i) {
    const std::size_t count = runs[distinct[i]->sql];
    print_plan(db,
               what + " (statement " + std::to_string(i + 1) + " of " +
                   std::to_string(distinct.size()) + ")" +
                   (count > 1 ? ", run " + std::to_string(count) + " times" : ""),
               distinct[i]->expanded);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const auto scale = quarry::bench::parse_scale(argc > 1 ? argv[1] : "L");
  if (argc > 2 || !scale) {
    std::cerr << "usage: explain_queries [S|M|L]\n";
    return 2;
  }
  try {
    auto& repo = quarry::bench::repository(*scale);
    auto& db = repo.db();
    const quarry::DeadCodeOptions dead_code{.runtime_members = {"get", "append", "items"}};
    explain(db, "dead code in memory, first page",
            quarry::bench::trace_statements(db, [&] { repo.get_dead_code(dead_code); }));
    explain(db, "dead code by statements, first page",
            quarry::bench::trace_statements(db, [&] { repo.dead_code_by_statements(dead_code); }));
    const auto hub = repo.get_symbol_by_fqn(quarry::bench::hub_fqn(0));
    explain(db, "callers of one id",
            quarry::bench::trace_statements(db, [&] { repo.callers_of({hub ? *hub->id : 1}); }));
    explain(db, "file-level cycles",
            quarry::bench::trace_statements(db, [&] { repo.find_circular_dependencies("file"); }));
  } catch (const std::exception& error) {
    std::cerr << "explain_queries: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
