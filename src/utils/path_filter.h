// The one rule that tells test files from production files, for C++ callers and for SQL.
//
// A path is a test path when, split on "/":
//   - a directory segment (any segment but the last) is exactly test, tests, testing,
//     __tests__, spec or specs; or
//   - the file name begins with "test_"; or
//   - the file name up to its first "." ends with "_test", "_tests" or "_spec"; or
//   - the file name contains ".test." or ".spec."; or
//   - the file name is "conftest.py".
// The comparison is case-sensitive.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "storage/database.h"

struct sqlite3;

namespace quarry {

// True when `path` is a test path by the rule above.
bool is_test_path(std::string_view path);

// The name of the SQL function that applies the rule to one path. It is registered on
// every connection the database facade opens.
inline constexpr std::string_view TEST_PATH_SQL_FUNCTION = "quarry_is_test_path";

// Registers TEST_PATH_SQL_FUNCTION (deterministic, one text argument, 1 or 0; 0 for NULL)
// on `db`.
void register_test_path_function(sqlite3* db);

// Builds an SQL predicate over the files row aliased `alias` that holds for production
// files when `exclude` is true, and for test files when it is false. `via` names the
// column that identifies the file: "id" (the predicate looks the file up by id) or "path".
// Returns the predicate and the values it binds, which are always none.
// Throws std::invalid_argument for an alias that is not a plain identifier or another `via`.
std::pair<std::string, Params> sql_test_path_filter(std::string_view alias, bool exclude,
                                                    std::string_view via = "id");

}  // namespace quarry
