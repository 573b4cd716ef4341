// Queries over the index as a whole: its size, and sequential reads of whole tables for
// the queries that join them in memory.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "storage/database.h"

struct sqlite3_stmt;

namespace quarry {

class GraphQueries {
 public:
  virtual ~GraphQueries() = default;

  // The connection to the index, supplied by the repository.
  virtual Database& db() = 0;

  // The number of rows of each index table, under the keys "files", "symbols", "edges",
  // "components" and "pending_references".
  virtual std::map<std::string, std::int64_t> get_stats();
};

namespace detail {

// One statement stepped through row by row, its values read in place: for reading a
// whole table without holding its rows. The statement is prepared on `db`'s connection
// (outside the facade's statement cache, and not counted by statements_run) and its "?"
// placeholders bound to `params` in order. Throws DatabaseError on any SQLite error, and
// when the number of parameters does not match the placeholders.
class RowScan {
 public:
  RowScan(Database& db, std::string_view sql, const Params& params = {});
  ~RowScan();
  RowScan(const RowScan&) = delete;
  RowScan& operator=(const RowScan&) = delete;

  // Rewinds the statement to run again from its first row, with values[i] bound to
  // placeholder i + 1 (any others keep their values). Throws DatabaseError on any SQLite
  // error, and when the statement has fewer placeholders than `count`.
  void rerun(const std::int64_t* values, std::size_t count);
  // Steps to the next row; false once the rows are exhausted.
  bool next();
  // Whether column `column` of the current row holds an integer (not NULL, real or text).
  bool is_integer(int column) const;
  bool is_null(int column) const;
  // The integer in column `column` (requires is_integer).
  std::int64_t integer(int column) const;
  // The text of column `column`, valid until the next step; a number reads as its text.
  std::string_view text(int column) const;
  // is_integer and integer, with one look-up of the column: the integer, or nothing when
  // the column holds none (NULL, real or text). For the long scans.
  std::optional<std::int64_t> integer_if(int column) const;
  // is_null and text, with one look-up of the column: the text, or nothing when the column
  // is NULL.
  std::optional<std::string_view> text_if(int column) const;

 private:
  Database& db_;
  sqlite3_stmt* statement_ = nullptr;
};

// One read transaction on `db` for the holder's lifetime: the statements run meanwhile read
// one snapshot of the index, and a statement run many times does not take and release the
// file's lock at each run. Nothing when the connection is already in a transaction. Throws
// DatabaseError when the transaction cannot begin; ending it never throws.
class ReadTransaction {
 public:
  explicit ReadTransaction(Database& db);
  ~ReadTransaction();
  ReadTransaction(const ReadTransaction&) = delete;
  ReadTransaction& operator=(const ReadTransaction&) = delete;

 private:
  Database& db_;
  bool began_ = false;
};

// The positions of distinct integer ids in the list they were given in: a flat table
// when the ids are compact (as the ids of one table are), a hash map otherwise.
class IdPositions {
 public:
  static constexpr std::uint32_t NONE = 0xffffffffU;

  // Requires distinct ids, fewer than NONE of them.
  explicit IdPositions(const std::vector<std::int64_t>& ids);
  // The position of `id`, or NONE when it was not given.
  std::uint32_t find(std::int64_t id) const {
    if (sparse_mode_) {
      const auto found = sparse_.find(id);
      return found == sparse_.end() ? NONE : found->second;
    }
    if (id < low_) return NONE;
    const std::uint64_t offset = static_cast<std::uint64_t>(id) - static_cast<std::uint64_t>(low_);
    return offset < table_.size() ? table_[offset] : NONE;
  }

 private:
  bool sparse_mode_ = false;
  std::int64_t low_ = 0;
  std::vector<std::uint32_t> table_;
  std::unordered_map<std::int64_t, std::uint32_t> sparse_;
};

}  // namespace detail

}  // namespace quarry
