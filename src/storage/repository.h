// The repository: one open index and every query over it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "storage/database.h"
#include "storage/index_meta.h"
#include "storage/repository_components.h"
#include "storage/repository_graph.h"
#include "storage/repository_quality.h"
#include "storage/repository_symbols.h"

namespace quarry {

// Combines the quality queries with their sibling query classes over one connection, and
// supplies the host operations the quality queries rely on. Subclasses may override any
// host operation (tests substitute answers this way).
class Repository : public QualityQueries,
                   public GraphQueries,
                   public SymbolQueries,
                   public ComponentQueries {
 public:
  // Opens the index at `path` read-only. Throws DatabaseError naming the file and what is
  // wrong when it is missing, not an SQLite database, or lacks a table or column the
  // queries read.
  explicit Repository(const std::string& path);

  // Takes over an open connection, after checking its tables and columns as above.
  explicit Repository(Database database);

  Database& db() override { return database_; }

  // What the index records about itself; every field absent for an index without a meta
  // table (see read_index_meta). Never throws DatabaseError.
  IndexMeta index_meta() { return read_index_meta(database_); }

  std::map<std::string, std::int64_t> get_stats() override { return GraphQueries::get_stats(); }

  std::optional<Symbol> get_symbol_by_fqn(const std::string& fqn) override {
    return SymbolQueries::get_symbol_by_fqn(fqn);
  }

  std::vector<ComponentDependency> get_component_dependencies(bool exclude_test_files) override {
    return ComponentQueries::get_component_dependencies(exclude_test_files);
  }

 protected:
  bool is_test_file(const std::string& path) override;

  std::vector<std::string> get_components_for_files(
      const std::vector<std::string>& paths) override {
    return ComponentQueries::get_components_for_files(paths);
  }

 private:
  Database database_;
};

// Checks that `db` has every table and column the queries read; throws DatabaseError
// naming the first table or column that is missing.
void check_index_schema(Database& db);

}  // namespace quarry
