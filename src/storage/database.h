// The database facade: one SQLite connection to an index, with typed rows, positional
// parameters and reused prepared statements.
//
// The query side opens an index with Database::open_readonly and never writes through it;
// only create_index opens a file for writing, to make a new, empty index.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

struct sqlite3;

namespace quarry {

// One value of a result row or of a bound parameter: NULL, integer, real or text.
// Blobs read as text holding their bytes.
using Value = std::variant<std::monostate, std::int64_t, double, std::string>;
using Row = std::vector<Value>;
using Params = std::vector<Value>;

// The one error type of the facade. what() reads "FILE: MESSAGE"; the parts are kept apart.
class DatabaseError : public std::runtime_error {
 public:
  DatabaseError(std::string path, std::string message);

  // The database file the error concerns.
  const std::string& path() const { return path_; }
  // SQLite's own message, or the facade's where SQLite had none.
  const std::string& message() const { return message_; }

 private:
  std::string path_;
  std::string message_;
};

// Conversions of a row value, following SQLite's own rules: NULL reads as 0 or "",
// a real is truncated to an integer, a number reads as its decimal text. A real outside
// the 64-bit range throws std::range_error (a row read from an INTEGER column never holds
// one: the row is NULL there, or the read fails naming table, column and row).
std::int64_t to_int(const Value& value);
std::string to_text(const Value& value);
// NULL, and a real outside the 64-bit range, read as nothing; any other value as to_int.
std::optional<std::int64_t> to_optional_int(const Value& value);
bool is_null(const Value& value);

// Whether the file at `path` starts with SQLite's header. Reads it; opens no connection.
bool is_sqlite_database(const std::string& path);

class Database {
 public:
  // Opens an existing database file for reading only (SQLITE_OPEN_READONLY). The name is
  // taken literally, never as a URI. Creates no file beside it: a database in WAL mode
  // whose log is empty is read as immutable. Throws DatabaseError when the file does not
  // exist, is not a regular file, is not an SQLite database, or can only be read by
  // writing (a hot journal to roll back, a WAL log that still holds changes); the message
  // says what to do.
  static Database open_readonly(const std::string& path);

  // Opens (creating if missing) a database file for writing. Only code that builds an
  // index uses this.
  static Database open_writable(const std::string& path);

  Database(Database&&) noexcept;
  Database& operator=(Database&&) noexcept;
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  // Runs one statement with its "?" placeholders bound in order to `params` and returns
  // every row, each indexed by column position. Throws DatabaseError on any SQLite error,
  // and when the number of parameters does not match the placeholders.
  std::vector<Row> fetchall(std::string_view sql, const Params& params = {});

  // As fetchall, but returns only the first row, or nothing when there is none.
  std::optional<Row> fetchone(std::string_view sql, const Params& params = {});

  // Runs a script of statements without parameters (schema, transactions).
  void execute(std::string_view script);

  // The number of statements run by fetchall and fetchone since the connection opened.
  std::uint64_t statements_run() const;

  const std::string& path() const;
  sqlite3* handle();

  // The connection's state, opaque outside database.cpp.
  struct Impl;

 private:
  explicit Database(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

// The tables of an index: files, symbols, edges, components, pending_references.
extern const std::string_view INDEX_TABLES_SQL;
// The lookup indexes that keep the queries fast on large indexes, in two parts: those on
// the files, components and symbols (files by path and component, symbols by fqn, name and
// file), and those on the links between symbols (edges by target and by source, pending
// references by name), so that a writer can build the first while it still writes the
// links.
extern const std::string_view INDEX_FILE_LOOKUPS_SQL;
extern const std::string_view INDEX_LINK_LOOKUPS_SQL;

// Creates a new, empty index at `path` and returns a writable connection to it. With
// `with_lookups` false the lookup indexes are left out, for a writer that bulk-loads first
// and adds them afterwards (execute both parts of the lookups). `settings` (PRAGMA
// statements, such as a journal mode) are run on the connection before anything is
// written. Throws DatabaseError when the file already holds an index or cannot be written.
Database create_index(const std::string& path, bool with_lookups = true,
                      std::string_view settings = {});

}  // namespace quarry
