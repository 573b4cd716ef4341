#include "storage/database.h"

#include <sqlite3.h>

#include <charconv>
#include <filesystem>
#include <unordered_map>

#include "utils/path_filter.h"

namespace quarry {

DatabaseError::DatabaseError(std::string path, std::string message)
    : std::runtime_error(path + ": " + message),
      path_(std::move(path)),
      message_(std::move(message)) {}

std::int64_t to_int(const Value& value) {
  if (const auto* i = std::get_if<std::int64_t>(&value)) return *i;
  if (const auto* d = std::get_if<double>(&value)) return static_cast<std::int64_t>(*d);
  if (const auto* s = std::get_if<std::string>(&value)) {
    // SQLite reads the longest leading integer of a text and 0 when there is none.
    std::int64_t out = 0;
    std::size_t start = s->find_first_not_of(" \t\n\r");
    if (start == std::string::npos) return 0;
    if (s->compare(start, 1, "+") == 0) ++start;
    std::from_chars(s->data() + start, s->data() + s->size(), out);
    return out;
  }
  return 0;
}

std::string to_text(const Value& value) {
  if (const auto* s = std::get_if<std::string>(&value)) return *s;
  if (const auto* i = std::get_if<std::int64_t>(&value)) return std::to_string(*i);
  if (const auto* d = std::get_if<double>(&value)) {
    char buf[32];
    auto res = std::to_chars(buf, buf + sizeof buf, *d);
    return std::string(buf, res.ptr);
  }
  return {};
}

std::optional<std::int64_t> to_optional_int(const Value& value) {
  if (is_null(value)) return std::nullopt;
  return to_int(value);
}

bool is_null(const Value& value) {
  return std::holds_alternative<std::monostate>(value);
}

namespace {

// Prepared statements kept per connection. A handful of texts are in use at once (the
// caller lookup makes one text per chunk size), so the cache is small and simply starts
// over when full.
constexpr std::size_t STATEMENT_CACHE_SIZE = 64;

struct StatementDeleter {
  void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};
using StatementPtr = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

}  // namespace

struct Database::Impl {
  std::string path;
  sqlite3* db = nullptr;
  std::unordered_map<std::string, StatementPtr> statements;
  std::uint64_t statements_run = 0;

  ~Impl() {
    statements.clear();
    if (db != nullptr) sqlite3_close(db);
  }

  [[noreturn]] void fail(std::string_view fallback = "unknown error") const {
    const char* message = db != nullptr ? sqlite3_errmsg(db) : nullptr;
    throw DatabaseError(path, message != nullptr ? message : std::string(fallback));
  }

  sqlite3_stmt* prepare(std::string_view sql) {
    auto found = statements.find(std::string(sql));
    if (found != statements.end()) return found->second.get();
    sqlite3_stmt* raw = nullptr;
    const char* tail = nullptr;
    if (sqlite3_prepare_v2(db, sql.data(), static_cast<int>(sql.size()), &raw, &tail) !=
        SQLITE_OK) {
      fail();
    }
    StatementPtr stmt(raw);
    if (stmt == nullptr) throw DatabaseError(path, "empty statement");
    if (tail != nullptr &&
        std::string_view(tail).find_first_not_of(" \t\r\n;") != std::string_view::npos) {
      throw DatabaseError(path, "more than one statement in one query");
    }
    if (statements.size() >= STATEMENT_CACHE_SIZE) statements.clear();
    return statements.emplace(std::string(sql), std::move(stmt)).first->second.get();
  }

  void bind(sqlite3_stmt* stmt, const Params& params) const {
    const int expected = sqlite3_bind_parameter_count(stmt);
    if (expected != static_cast<int>(params.size())) {
      throw DatabaseError(path, "statement has " + std::to_string(expected) + " placeholders but " +
                                    std::to_string(params.size()) + " values were given");
    }
    for (int i = 0; i < expected; ++i) {
      const Value& value = params[static_cast<std::size_t>(i)];
      int rc = SQLITE_OK;
      if (const auto* n = std::get_if<std::int64_t>(&value)) {
        rc = sqlite3_bind_int64(stmt, i + 1, *n);
      } else if (const auto* d = std::get_if<double>(&value)) {
        rc = sqlite3_bind_double(stmt, i + 1, *d);
      } else if (const auto* s = std::get_if<std::string>(&value)) {
        rc = sqlite3_bind_text64(stmt, i + 1, s->data(), s->size(), SQLITE_TRANSIENT, SQLITE_UTF8);
      } else {
        rc = sqlite3_bind_null(stmt, i + 1);
      }
      if (rc != SQLITE_OK) fail();
    }
  }

  static Value column(sqlite3_stmt* stmt, int i) {
    switch (sqlite3_column_type(stmt, i)) {
      case SQLITE_INTEGER:
        return Value{static_cast<std::int64_t>(sqlite3_column_int64(stmt, i))};
      case SQLITE_FLOAT:
        return Value{sqlite3_column_double(stmt, i)};
      case SQLITE_NULL:
        return Value{};
      default: {
        const auto* text = static_cast<const char*>(sqlite3_column_blob(stmt, i));
        const int size = sqlite3_column_bytes(stmt, i);
        return Value{text != nullptr ? std::string(text, static_cast<std::size_t>(size))
                                     : std::string()};
      }
    }
  }

  // Runs a statement and collects at most `max_rows` rows (0: all).
  std::vector<Row> run(std::string_view sql, const Params& params, std::size_t max_rows) {
    sqlite3_stmt* stmt = prepare(sql);
    ++statements_run;
    // Reset even when a step or a bind fails, so the cached statement is reusable.
    struct Reset {
      sqlite3_stmt* stmt;
      ~Reset() {
        sqlite3_reset(stmt);
        sqlite3_clear_bindings(stmt);
      }
    } reset{stmt};
    bind(stmt, params);
    std::vector<Row> rows;
    const int columns = sqlite3_column_count(stmt);
    while (max_rows == 0 || rows.size() < max_rows) {
      const int rc = sqlite3_step(stmt);
      if (rc == SQLITE_DONE) break;
      if (rc != SQLITE_ROW) fail();
      Row row;
      row.reserve(static_cast<std::size_t>(columns));
      for (int i = 0; i < columns; ++i)
        row.push_back(column(stmt, i));
      rows.push_back(std::move(row));
    }
    return rows;
  }
};

namespace {

// Opens a connection with the facade's settings; flags decide read-only or writable.
std::unique_ptr<Database::Impl> connect(const std::string& path, int flags) {
  auto impl = std::make_unique<Database::Impl>();
  impl->path = path;
  const int rc = sqlite3_open_v2(path.c_str(), &impl->db, flags, nullptr);
  if (rc != SQLITE_OK) impl->fail("cannot open database");
  sqlite3_extended_result_codes(impl->db, 1);
  // Another process may be writing a fresh index beside us; wait for it briefly.
  sqlite3_busy_timeout(impl->db, 5000);
  register_test_path_function(impl->db);
  return impl;
}

}  // namespace

Database::Database(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Database::Database(Database&&) noexcept = default;
Database& Database::operator=(Database&&) noexcept = default;
Database::~Database() = default;

Database Database::open_readonly(const std::string& path) {
  std::error_code ec;
  const auto status = std::filesystem::status(path, ec);
  if (!std::filesystem::exists(status)) throw DatabaseError(path, "no such file");
  if (!std::filesystem::is_regular_file(status)) throw DatabaseError(path, "not a regular file");
  Database db(connect(path, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX));
  // SQLite reads the header lazily; touch the schema now so that a foreign file fails here.
  db.fetchall("SELECT count(*) FROM sqlite_master");
  return db;
}

Database Database::open_writable(const std::string& path) {
  return Database(connect(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX));
}

std::vector<Row> Database::fetchall(std::string_view sql, const Params& params) {
  return impl_->run(sql, params, 0);
}

std::optional<Row> Database::fetchone(std::string_view sql, const Params& params) {
  auto rows = impl_->run(sql, params, 1);
  if (rows.empty()) return std::nullopt;
  return std::move(rows.front());
}

void Database::execute(std::string_view script) {
  const std::string text(script);
  char* error = nullptr;
  if (sqlite3_exec(impl_->db, text.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    std::string message = error != nullptr ? error : "statement failed";
    sqlite3_free(error);
    throw DatabaseError(impl_->path, message);
  }
}

std::uint64_t Database::statements_run() const {
  return impl_->statements_run;
}
const std::string& Database::path() const {
  return impl_->path;
}
sqlite3* Database::handle() {
  return impl_->db;
}

const std::string_view INDEX_TABLES_SQL = R"sql(
CREATE TABLE components (
  id INTEGER PRIMARY KEY,
  name TEXT NOT NULL
);
CREATE TABLE files (
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL,
  language TEXT,
  component_id INTEGER REFERENCES components(id)
);
CREATE TABLE symbols (
  id INTEGER PRIMARY KEY,
  file_id INTEGER NOT NULL REFERENCES files(id),
  name TEXT NOT NULL,
  kind TEXT NOT NULL,
  fqn TEXT NOT NULL,
  start_line INTEGER NOT NULL,
  end_line INTEGER,
  signature TEXT,
  is_export INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE edges (
  id INTEGER PRIMARY KEY,
  source_id INTEGER NOT NULL REFERENCES symbols(id),
  target_id INTEGER NOT NULL REFERENCES symbols(id),
  kind TEXT NOT NULL,
  resolution TEXT,
  line INTEGER
);
CREATE TABLE pending_references (
  id INTEGER PRIMARY KEY,
  source_id INTEGER REFERENCES symbols(id),
  target_name TEXT NOT NULL,
  line INTEGER
);
)sql";

const std::string_view INDEX_LOOKUPS_SQL = R"sql(
CREATE INDEX idx_files_path ON files(path);
CREATE INDEX idx_files_component ON files(component_id);
CREATE INDEX idx_components_name ON components(name);
CREATE INDEX idx_symbols_fqn ON symbols(fqn, file_id, kind);
CREATE INDEX idx_symbols_name ON symbols(name);
CREATE INDEX idx_symbols_file ON symbols(file_id, kind);
CREATE INDEX idx_edges_target ON edges(target_id, kind, resolution, source_id, line);
CREATE INDEX idx_edges_source ON edges(source_id, kind, resolution, target_id);
CREATE INDEX idx_pending_name ON pending_references(target_name);
)sql";

Database create_index(const std::string& path, bool with_lookups) {
  Database db = Database::open_writable(path);
  db.execute("BEGIN");
  try {
    db.execute(INDEX_TABLES_SQL);
    if (with_lookups) db.execute(INDEX_LOOKUPS_SQL);
    db.execute("COMMIT");
  } catch (...) {
    sqlite3_exec(db.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
  return db;
}

}  // namespace quarry
