#include "storage/repository_graph.h"

#include <sqlite3.h>

#include <algorithm>
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

namespace detail {

namespace {

[[noreturn]] void fail(Database& db) {
  throw DatabaseError(db.path(), sqlite3_errmsg(db.handle()));
}

}  // namespace

RowScan::RowScan(Database& db, std::string_view sql, const Params& params) : db_(db) {
  if (sqlite3_prepare_v2(db.handle(), sql.data(), static_cast<int>(sql.size()), &statement_,
                         nullptr) != SQLITE_OK) {
    fail(db);
  }
  if (statement_ == nullptr) throw DatabaseError(db.path(), "empty statement");
  const int expected = sqlite3_bind_parameter_count(statement_);
  if (expected != static_cast<int>(params.size())) {
    sqlite3_finalize(statement_);
    throw DatabaseError(db.path(), "statement has " + std::to_string(expected) +
                                       " placeholders but " + std::to_string(params.size()) +
                                       " values were given");
  }
  for (int i = 0; i < expected; ++i) {
    const Value& value = params[static_cast<std::size_t>(i)];
    int status = SQLITE_OK;
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
      status = sqlite3_bind_int64(statement_, i + 1, *number);
    } else if (const auto* real = std::get_if<double>(&value)) {
      status = sqlite3_bind_double(statement_, i + 1, *real);
    } else if (const auto* text = std::get_if<std::string>(&value)) {
      status = sqlite3_bind_text64(statement_, i + 1, text->data(), text->size(), SQLITE_TRANSIENT,
                                   SQLITE_UTF8);
    } else {
      status = sqlite3_bind_null(statement_, i + 1);
    }
    if (status != SQLITE_OK) {
      const std::string message = sqlite3_errmsg(db.handle());
      sqlite3_finalize(statement_);
      throw DatabaseError(db.path(), message);
    }
  }
}

RowScan::~RowScan() {
  sqlite3_finalize(statement_);
}

void RowScan::rerun(const std::int64_t* values, std::size_t count) {
  if (static_cast<std::size_t>(sqlite3_bind_parameter_count(statement_)) < count)
    throw DatabaseError(db_.path(), "statement has too few placeholders to bind");
  // A failed step already reported its error; reset repeats its code, not a new error.
  sqlite3_reset(statement_);
  for (std::size_t i = 0; i < count; ++i) {
    if (sqlite3_bind_int64(statement_, static_cast<int>(i) + 1, values[i]) != SQLITE_OK) fail(db_);
  }
}

bool RowScan::next() {
  const int status = sqlite3_step(statement_);
  if (status == SQLITE_ROW) return true;
  if (status == SQLITE_DONE) return false;
  fail(db_);
}

bool RowScan::is_integer(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_INTEGER;
}

bool RowScan::is_null(int column) const {
  return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

std::int64_t RowScan::integer(int column) const {
  return sqlite3_column_int64(statement_, column);
}

std::optional<std::int64_t> RowScan::integer_if(int column) const {
  // The column's value read in place, as the column functions read it (this connection is
  // used by one thread at a time).
  sqlite3_value* value = sqlite3_column_value(statement_, column);
  if (sqlite3_value_type(value) != SQLITE_INTEGER) return std::nullopt;
  return sqlite3_value_int64(value);
}

std::optional<std::string_view> RowScan::text_if(int column) const {
  sqlite3_value* value = sqlite3_column_value(statement_, column);
  if (sqlite3_value_type(value) == SQLITE_NULL) return std::nullopt;
  const auto* text = reinterpret_cast<const char*>(sqlite3_value_text(value));
  const int size = sqlite3_value_bytes(value);
  return text == nullptr ? std::string_view()
                         : std::string_view(text, static_cast<std::size_t>(size));
}

std::string_view RowScan::text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
  const int size = sqlite3_column_bytes(statement_, column);
  return text == nullptr ? std::string_view()
                         : std::string_view(text, static_cast<std::size_t>(size));
}

ReadTransaction::ReadTransaction(Database& db) : db_(db) {
  if (sqlite3_get_autocommit(db.handle()) == 0) return;
  // Deferred: the snapshot is taken by the first read.
  db.execute("BEGIN");
  began_ = true;
}

ReadTransaction::~ReadTransaction() {
  if (!began_) return;
  // Nothing was written, so ending by commit or by rollback is the same; a rollback also
  // ends it while a statement is still stepping.
  if (sqlite3_exec(db_.handle(), "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK)
    sqlite3_exec(db_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

IdPositions::IdPositions(const std::vector<std::int64_t>& ids) {
  if (ids.empty()) return;
  const auto [low, high] = std::minmax_element(ids.begin(), ids.end());
  low_ = *low;
  const std::uint64_t span = static_cast<std::uint64_t>(*high) - static_cast<std::uint64_t>(*low);
  // A table at most four times as long as the ids, else a hash map.
  if (span / 4 >= ids.size()) {
    sparse_mode_ = true;
    sparse_.reserve(ids.size());
    for (std::size_t i = 0; i < ids.size(); ++i)
      sparse_.emplace(ids[i], static_cast<std::uint32_t>(i));
    return;
  }
  table_.assign(static_cast<std::size_t>(span) + 1, NONE);
  for (std::size_t i = 0; i < ids.size(); ++i)
    table_[static_cast<std::uint64_t>(ids[i]) - static_cast<std::uint64_t>(low_)] =
        static_cast<std::uint32_t>(i);
}

}  // namespace detail

}  // namespace quarry
