#include "storage/repository.h"

#include <array>
#include <set>
#include <string_view>

#include "utils/path_filter.h"

namespace quarry {

namespace {

struct RequiredTable {
  std::string_view name;
  std::array<std::string_view, 8> columns;  // unused slots are empty
};

constexpr std::array<RequiredTable, 5> REQUIRED_SCHEMA{{
    {"files", {"id", "path", "language", "component_id"}},
    {"symbols", {"id", "file_id", "name", "kind", "fqn", "start_line", "signature", "is_export"}},
    {"edges", {"source_id", "target_id", "kind", "resolution", "line"}},
    {"components", {"id", "name"}},
    {"pending_references", {"target_name"}},
}};

}  // namespace

void check_index_schema(Database& db) {
  for (const RequiredTable& table : REQUIRED_SCHEMA) {
    const std::string name(table.name);
    std::set<std::string> present;
    for (const Row& row : db.fetchall("SELECT name FROM pragma_table_info(?)", {name})) {
      present.insert(to_text(row[0]));
    }
    if (present.empty()) {
      throw DatabaseError(db.path(), "not a quarry index: no table '" + name + "'");
    }
    for (std::string_view column : table.columns) {
      if (!column.empty() && !present.contains(std::string(column))) {
        throw DatabaseError(db.path(), "not a quarry index: table '" + name + "' has no column '" +
                                           std::string(column) + "'");
      }
    }
  }
}

Repository::Repository(const std::string& path) : Repository(Database::open_readonly(path)) {}

Repository::Repository(Database database) : database_(std::move(database)) {
  check_index_schema(database_);
}

bool Repository::is_test_file(const std::string& path) {
  return is_test_path(path);
}

}  // namespace quarry
