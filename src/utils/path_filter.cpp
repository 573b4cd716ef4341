#include "utils/path_filter.h"

#include <sqlite3.h>

#include <array>
#include <stdexcept>

namespace quarry {

namespace {

constexpr std::array<std::string_view, 6> TEST_DIRECTORIES{"test",      "tests", "testing",
                                                           "__tests__", "spec",  "specs"};
constexpr std::array<std::string_view, 3> TEST_STEM_SUFFIXES{"_test", "_tests", "_spec"};

bool is_test_file_name(std::string_view name) {
  if (name.starts_with("test_") || name == "conftest.py") return true;
  if (name.find(".test.") != std::string_view::npos ||
      name.find(".spec.") != std::string_view::npos) {
    return true;
  }
  const std::string_view stem = name.substr(0, name.find('.'));
  for (std::string_view suffix : TEST_STEM_SUFFIXES) {
    if (stem.ends_with(suffix)) return true;
  }
  return false;
}

bool is_identifier(std::string_view text) {
  if (text.empty()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    if (!letter && !(i > 0 && c >= '0' && c <= '9')) return false;
  }
  return true;
}

void sql_is_test_path(sqlite3_context* context, int, sqlite3_value** argv) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(argv[0]));
  if (text == nullptr) {
    sqlite3_result_int(context, 0);
    return;
  }
  const auto size = static_cast<std::size_t>(sqlite3_value_bytes(argv[0]));
  sqlite3_result_int(context, is_test_path(std::string_view(text, size)) ? 1 : 0);
}

}  // namespace

bool is_test_path(std::string_view path) {
  std::size_t start = 0;
  for (std::size_t slash = path.find('/'); slash != std::string_view::npos;
       slash = path.find('/', start)) {
    const std::string_view directory = path.substr(start, slash - start);
    for (std::string_view test_dir : TEST_DIRECTORIES) {
      if (directory == test_dir) return true;
    }
    start = slash + 1;
  }
  return is_test_file_name(path.substr(start));
}

void register_test_path_function(sqlite3* db) {
  const std::string name(TEST_PATH_SQL_FUNCTION);
  sqlite3_create_function_v2(db, name.c_str(), 1,
                             SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, nullptr,
                             sql_is_test_path, nullptr, nullptr, nullptr);
}

std::pair<std::string, Params> sql_test_path_filter(std::string_view alias, bool exclude,
                                                    std::string_view via) {
  if (!is_identifier(alias)) {
    throw std::invalid_argument("not a table alias: '" + std::string(alias) + "'");
  }
  const std::string function(TEST_PATH_SQL_FUNCTION);
  const std::string a(alias);
  if (via == "id") {
    // The set of test file ids is computed once per statement and then probed by id.
    return {a + ".id " + (exclude ? "NOT IN" : "IN") + " (SELECT id FROM files WHERE " + function +
                "(path))",
            {}};
  }
  if (via == "path") {
    return {std::string(exclude ? "NOT " : "") + function + "(" + a + ".path)", {}};
  }
  throw std::invalid_argument("unknown test-path column: '" + std::string(via) + "'");
}

}  // namespace quarry
