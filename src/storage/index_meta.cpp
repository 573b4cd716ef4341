#include "storage/index_meta.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <map>
#include <set>
#include <system_error>
#include <vector>

#include "utils/git_head.h"
#include "utils/upward.h"

namespace quarry {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view ROOT_KEY = "root";
constexpr std::string_view QUARRY_VERSION_KEY = "quarry_version";
constexpr std::string_view SCHEMA_VERSION_KEY = "schema_version";
constexpr std::string_view GIT_COMMIT_KEY = "git_commit";
constexpr std::string_view INDEXED_AT_KEY = "indexed_at";

std::optional<std::int64_t> decimal(const Value& value) {
  if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
  const auto* text = std::get_if<std::string>(&value);
  if (text == nullptr || text->empty()) return std::nullopt;
  std::int64_t number = 0;
  const char* end = text->data() + text->size();
  const auto [stop, error] = std::from_chars(text->data(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::optional<std::string> hex_name(const Value& value) {
  const auto* text = std::get_if<std::string>(&value);
  if (text == nullptr || (text->size() != 40 && text->size() != 64)) return std::nullopt;
  const bool hex = std::all_of(text->begin(), text->end(), [](char c) {
    return std::isdigit(static_cast<unsigned char>(c)) || (c >= 'a' && c <= 'f');
  });
  return hex ? std::optional(*text) : std::nullopt;
}

std::optional<std::string> text_of(const Value& value) {
  const auto* text = std::get_if<std::string>(&value);
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

}  // namespace

IndexMeta read_index_meta(Database& db) {
  IndexMeta meta;
  try {
    std::set<std::string> columns;
    for (const Row& row : db.fetchall("SELECT name FROM pragma_table_info('meta')"))
      columns.insert(to_text(row[0]));
    if (!columns.contains("key") || !columns.contains("value")) return meta;
    // Values as stored: a text, a number or NULL; blobs are left out.
    std::map<std::string, std::vector<Value>> values;
    for (const Row& row : db.fetchall(
             "SELECT key, CASE typeof(value) WHEN 'blob' THEN NULL ELSE value END FROM meta "
             "WHERE typeof(key) = 'text'")) {
      values[to_text(row[0])].push_back(row[1]);
    }
    const auto single = [&](std::string_view key) -> const Value* {
      const auto found = values.find(std::string(key));
      return found != values.end() && found->second.size() == 1 ? &found->second[0] : nullptr;
    };
    if (const Value* v = single(ROOT_KEY)) meta.root = text_of(*v);
    if (const Value* v = single(QUARRY_VERSION_KEY)) meta.quarry_version = text_of(*v);
    if (const Value* v = single(INDEXED_AT_KEY)) meta.indexed_at = text_of(*v);
    if (const Value* v = single(GIT_COMMIT_KEY)) meta.git_commit = hex_name(*v);
    if (const Value* v = single(SCHEMA_VERSION_KEY)) meta.schema_version = decimal(*v);
  } catch (const DatabaseError&) {
    return IndexMeta{};
  }
  return meta;
}

void write_index_meta(Database& db, const IndexMeta& meta) {
  db.execute("CREATE TABLE meta (key TEXT PRIMARY KEY, value TEXT NOT NULL)");
  const auto put = [&](std::string_view key, const std::optional<std::string>& value) {
    if (value)
      db.fetchall("INSERT INTO meta (key, value) VALUES (?, ?)", {std::string(key), *value});
  };
  put(ROOT_KEY, meta.root);
  put(QUARRY_VERSION_KEY, meta.quarry_version);
  put(SCHEMA_VERSION_KEY,
      meta.schema_version ? std::optional(std::to_string(*meta.schema_version)) : std::nullopt);
  put(GIT_COMMIT_KEY, meta.git_commit);
  put(INDEXED_AT_KEY, meta.indexed_at);
}

std::optional<fs::path> find_index(const fs::path& start) {
  try {
    for (const fs::path& dir : directories_upward(start)) {
      std::error_code ec;
      const fs::path index = dir / INDEX_DIR_NAME / INDEX_FILE_NAME;
      if (fs::is_regular_file(index, ec)) return index;
    }
  } catch (const std::exception&) {
  }
  return std::nullopt;
}

bool index_is_stale(const IndexMeta& meta, const fs::path& root) {
  if (!meta.git_commit) return false;
  const auto head = git_head_commit(root);
  return head && *head != *meta.git_commit;
}

}  // namespace quarry
