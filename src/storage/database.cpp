#include "storage/database.h"

#include <sqlite3.h>

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <unordered_map>

#include "utils/path_filter.h"

namespace quarry {

DatabaseError::DatabaseError(std::string path, std::string message)
    : std::runtime_error(path + ": " + message),
      path_(std::move(path)),
      message_(std::move(message)) {}

namespace {

bool fits_int64(double value) {
  // 2^63 is exact as a double; NaN fails both comparisons.
  return value >= -9223372036854775808.0 && value < 9223372036854775808.0;
}

}  // namespace

std::int64_t to_int(const Value& value) {
  if (const auto* i = std::get_if<std::int64_t>(&value)) return *i;
  if (const auto* d = std::get_if<double>(&value)) {
    if (!fits_int64(*d)) {
      throw std::range_error("the index holds a number outside the 64-bit integer range: " +
                             to_text(value));
    }
    return static_cast<std::int64_t>(*d);
  }
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
  // Where a value may be absent, one that fits no integer is read as absent.
  if (const auto* d = std::get_if<double>(&value); d != nullptr && !fits_int64(*d)) {
    return std::nullopt;
  }
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

// The reading connection's memory map and page cache. The map takes address space, not
// memory, so it covers the whole of an index up to SQLite's own ceiling (2 GiB unless built
// otherwise). Pages past the map are copied through read() into the cache: with a map of
// 256 MiB, 0.4 s of system time in the dead-code listing on the 650 MB index of scale L.
constexpr std::int64_t READONLY_MMAP_BYTES = std::int64_t{2} << 30;
constexpr std::int64_t READONLY_CACHE_KIB = 64 << 10;

// The first bytes of an SQLite database file: its magic text and the two bytes that say
// whether it is in WAL mode (2) or uses a rollback journal (1).
constexpr std::string_view SQLITE_MAGIC{"SQLite format 3\0", 16};
constexpr std::size_t WRITE_VERSION_OFFSET = 18;
constexpr std::size_t READ_VERSION_OFFSET = 19;

// The header of the database file at `path`, or nothing when it is shorter or unreadable.
std::optional<std::array<unsigned char, 20>> read_header(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::array<unsigned char, 20> header{};
  if (!in.read(reinterpret_cast<char*>(header.data()), header.size())) return std::nullopt;
  return header;
}

bool has_magic(const std::array<unsigned char, 20>& header) {
  return std::string_view(reinterpret_cast<const char*>(header.data()), SQLITE_MAGIC.size()) ==
         SQLITE_MAGIC;
}

bool is_wal_mode(const std::string& path) {
  const auto header = read_header(path);
  return header && has_magic(*header) &&
         ((*header)[WRITE_VERSION_OFFSET] == 2 || (*header)[READ_VERSION_OFFSET] == 2);
}

std::string wal_advice(const std::string& path) {
  return "the index is in WAL mode and its write-ahead log (" + path +
         "-wal) still holds changes, which a reader could only see by creating files beside "
         "it; merge them with write access (sqlite3 " +
         path + " 'PRAGMA wal_checkpoint(TRUNCATE)') or run quarry index again";
}

// A file: URI naming `path` exactly, every byte outside the unreserved set escaped.
std::string file_uri(const std::string& path) {
  const std::string absolute = std::filesystem::absolute(path).string();
  std::string uri = "file://";
  constexpr std::string_view HEX = "0123456789ABCDEF";
  for (const unsigned char c : absolute) {
    if (std::isalnum(c) != 0 || c == '/' || c == '-' || c == '.' || c == '_' || c == '~') {
      uri += static_cast<char>(c);
    } else {
      uri += '%';
      uri += HEX[c >> 4];
      uri += HEX[c & 15];
    }
  }
  return uri;
}

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
    std::string text = message != nullptr ? message : std::string(fallback);
    // SQLite's words for these say what it tried, not what is wrong with the file.
    switch (db != nullptr ? sqlite3_extended_errcode(db) : SQLITE_OK) {
      case SQLITE_READONLY_ROLLBACK:
        text = "the index has a hot journal (" + path +
               "-journal) left by a writer that did not finish, and a reader may not roll it "
               "back; open it once with write access (sqlite3 " +
               path + " 'PRAGMA quick_check') or run quarry index again";
        break;
      case SQLITE_READONLY_RECOVERY:
      case SQLITE_READONLY_CANTINIT:
      case SQLITE_READONLY_CANTLOCK:
      case SQLITE_CANTOPEN:
        if (is_wal_mode(path)) text = wal_advice(path);
        break;
      default:
        break;
    }
    throw DatabaseError(path, text);
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

  Value column(sqlite3_stmt* stmt, int i) {
    switch (sqlite3_column_type(stmt, i)) {
      case SQLITE_INTEGER:
        return Value{static_cast<std::int64_t>(sqlite3_column_int64(stmt, i))};
      case SQLITE_FLOAT: {
        const double value = sqlite3_column_double(stmt, i);
        if (fits_int64(value) || !declared_integer(stmt, i)) return Value{value};
        return out_of_range(stmt, i, value);
      }
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

  static bool declared_integer(sqlite3_stmt* stmt, int i) {
    const char* type = sqlite3_column_decltype(stmt, i);
    return type != nullptr && sqlite3_stricmp(type, "INTEGER") == 0;
  }

  // A REAL too large for the INTEGER column it was read from (a foreign writer put it
  // there): NULL where the column may be NULL, else an error naming table, column and row.
  Value out_of_range(sqlite3_stmt* stmt, int i, double value) {
    const char* table = sqlite3_column_table_name(stmt, i);
    const char* name = sqlite3_column_origin_name(stmt, i);
    const std::string shown = to_text(Value{value});
    if (table == nullptr || name == nullptr) {
      throw DatabaseError(path, shown + " is outside the 64-bit integer range");
    }
    int not_null = 0;
    sqlite3_table_column_metadata(db, sqlite3_column_database_name(stmt, i), table, name, nullptr,
                                  nullptr, &not_null, nullptr, nullptr);
    if (not_null == 0) return Value{};
    std::string where = "table '" + std::string(table) + "', column '" + name + "'";
    // Find the row only now: this is the error path.
    const std::string find =
        "SELECT rowid FROM " + quoted(table) + " WHERE " + quoted(name) + " = ?1 LIMIT 1";
    sqlite3_stmt* raw = nullptr;
    if (sqlite3_prepare_v2(db, find.c_str(), -1, &raw, nullptr) == SQLITE_OK) {
      StatementPtr lookup(raw);
      sqlite3_bind_double(raw, 1, value);
      if (sqlite3_step(raw) == SQLITE_ROW) {
        where += ", row " + std::to_string(sqlite3_column_int64(raw, 0));
      }
    }
    throw DatabaseError(path, where + ": " + shown + " is outside the 64-bit integer range");
  }

  static std::string quoted(std::string_view identifier) {
    std::string text = "\"";
    for (char c : identifier)
      text += c == '"' ? std::string("\"\"") : std::string(1, c);
    return text + '"';
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
// `name` is what SQLite opens (the path, or a URI for it); errors name `path`.
std::unique_ptr<Database::Impl> connect(const std::string& path, const std::string& name,
                                        int flags) {
  auto impl = std::make_unique<Database::Impl>();
  impl->path = path;
  const int rc = sqlite3_open_v2(name.c_str(), &impl->db, flags, nullptr);
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

bool is_sqlite_database(const std::string& path) {
  const auto header = read_header(path);
  return header && has_magic(*header);
}

Database Database::open_readonly(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const auto status = fs::status(path, ec);
  if (!fs::exists(status)) throw DatabaseError(path, "no such file");
  if (!fs::is_regular_file(status)) throw DatabaseError(path, "not a regular file");
  // A reader of a WAL-mode database creates "-shm" and "-wal" files beside it, and cannot
  // open it at all where the directory is not writable. With no log pending, the file alone
  // holds the whole database: read it as immutable, which creates and locks nothing (quarry
  // replaces an index by renaming a new file over it, never by writing into it). A log that
  // still holds changes can only be read through those files, so it is refused.
  int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX;
  std::string name = path;
  if (is_wal_mode(path)) {
    const auto log_size = fs::file_size(path + "-wal", ec);
    const bool pending = !ec && log_size > 0;
    if (pending && !fs::exists(path + "-shm", ec)) throw DatabaseError(path, wal_advice(path));
    if (!pending) {
      flags |= SQLITE_OPEN_URI;
      name = file_uri(path) + "?immutable=1";
    }
  }
  Database db(connect(path, name, flags));
  // SQLite reads the header lazily; touch the schema now so that a foreign file fails here.
  db.fetchall("SELECT count(*) FROM sqlite_master");
  // The queries read large parts of the index: map it rather than copy each page through
  // read(), and keep more pages cached. Both only change this connection, not the file; the
  // mapping is safe because an index is replaced by renaming, never rewritten in place.
  db.execute("PRAGMA mmap_size = " + std::to_string(READONLY_MMAP_BYTES) +
             "; PRAGMA cache_size = -" + std::to_string(READONLY_CACHE_KIB));
  return db;
}

Database Database::open_writable(const std::string& path) {
  return Database(
      connect(path, path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX));
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

const std::string_view INDEX_FILE_LOOKUPS_SQL = R"sql(
CREATE INDEX idx_files_path ON files(path);
CREATE INDEX idx_files_component ON files(component_id);
CREATE INDEX idx_components_name ON components(name);
CREATE INDEX idx_symbols_fqn ON symbols(fqn, file_id, kind);
CREATE INDEX idx_symbols_name ON symbols(name);
CREATE INDEX idx_symbols_file ON symbols(file_id, kind);
)sql";

const std::string_view INDEX_LINK_LOOKUPS_SQL = R"sql(
CREATE INDEX idx_edges_target ON edges(target_id, kind, resolution, source_id, line);
CREATE INDEX idx_edges_source ON edges(source_id, kind, resolution, target_id);
CREATE INDEX idx_pending_name ON pending_references(target_name);
)sql";

Database create_index(const std::string& path, bool with_lookups, std::string_view settings) {
  Database db = Database::open_writable(path);
  if (!settings.empty()) db.execute(settings);
  db.execute("BEGIN");
  try {
    db.execute(INDEX_TABLES_SQL);
    if (with_lookups) {
      db.execute(INDEX_FILE_LOOKUPS_SQL);
      db.execute(INDEX_LINK_LOOKUPS_SQL);
    }
    db.execute("COMMIT");
  } catch (...) {
    sqlite3_exec(db.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
  return db;
}

}  // namespace quarry
