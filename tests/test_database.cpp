#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "storage/database.h"
#include "storage/repository.h"
#include "test_index.h"

namespace quarry {
namespace {

TEST(Database, TypedRowsAndPositionalParameters) {
  testing::TestIndex index;
  index.close();
  Database db = Database::open_readonly(index.path());
  const auto before = db.statements_run();
  const auto row = db.fetchone("SELECT ?, ?, ?, ?, NULL, x'6869'",
                               {std::int64_t{7}, 2.5, std::string("\xc3\xa9'\""), Value()});
  ASSERT_TRUE(row);
  EXPECT_EQ(*row, (Row{std::int64_t{7}, 2.5, std::string("\xc3\xa9'\""), Value(), Value(),
                       std::string("hi")}));
  EXPECT_FALSE(db.fetchone("SELECT 1 WHERE 0"));
  EXPECT_EQ(db.fetchall("SELECT 1 UNION ALL SELECT 2").size(), 2u);
  // The same text twice reuses its statement and still binds afresh.
  EXPECT_EQ(to_int(db.fetchone("SELECT ? + 1", {std::int64_t{1}})->at(0)), 2);
  EXPECT_EQ(to_int(db.fetchone("SELECT ? + 1", {std::int64_t{41}})->at(0)), 42);
  EXPECT_EQ(db.statements_run() - before, 5u);
}

TEST(Database, ErrorsCarrySqliteMessageAndFile) {
  testing::TestIndex index;
  index.close();
  Database db = Database::open_readonly(index.path());
  try {
    db.fetchall("SELECT * FROM no_such_table");
    FAIL();
  } catch (const DatabaseError& error) {
    EXPECT_EQ(error.path(), index.path());
    EXPECT_NE(error.message().find("no such table: no_such_table"), std::string::npos);
  }
  EXPECT_THROW(db.fetchall("SELECT ?", {}), DatabaseError);
  EXPECT_THROW(db.fetchall("SELECT 1; SELECT 2"), DatabaseError);
  // The connection is read-only: writes fail and the statement cache stays usable.
  EXPECT_THROW(db.fetchall("INSERT INTO components (name) VALUES ('x')"), DatabaseError);
  EXPECT_EQ(to_int(db.fetchone("SELECT COUNT(*) FROM components")->at(0)), 0);
}

TEST(Database, OpeningSomethingThatIsNoIndexNamesWhatIsWrong) {
  testing::TestIndex missing_table, missing_column;
  missing_table.execute("DROP TABLE pending_references");
  missing_table.close();
  missing_column.execute("ALTER TABLE symbols DROP COLUMN signature");
  missing_column.close();
  const std::string not_sqlite = ::testing::TempDir() + "quarry_not_sqlite.db";
  std::ofstream(not_sqlite) << "this is not a database, just some text that is long enough";

  const std::vector<std::pair<std::string, std::string>> cases = {
      {::testing::TempDir() + "quarry_does_not_exist.db", "no such file"},
      {::testing::TempDir(), "not a regular file"},
      {not_sqlite, "file is not a database"},
      {missing_table.path(), "no table 'pending_references'"},
      {missing_column.path(), "table 'symbols' has no column 'signature'"},
  };
  for (const auto& [path, message] : cases) {
    try {
      Repository repo(path);
      ADD_FAILURE() << path << " opened";
    } catch (const DatabaseError& error) {
      EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
      EXPECT_EQ(error.path(), path);
    }
  }
  std::filesystem::remove(not_sqlite);
}

}  // namespace
}  // namespace quarry

namespace quarry {
namespace {

namespace fs = std::filesystem;

// The names in `dir` that start with `prefix`, to show that reading created nothing.
std::set<std::string> names_beside(const std::string& path) {
  std::set<std::string> names;
  const std::string prefix = fs::path(path).filename().string();
  for (const auto& entry : fs::directory_iterator(fs::path(path).parent_path())) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with(prefix)) names.insert(name);
  }
  return names;
}

// Copies a database with the files beside it that SQLite keeps while a writer is open,
// which gives a file that only a writer could read whole.
std::string copy_with(const std::string& from, const std::string& suffix) {
  const std::string to = from + "_" + suffix.substr(1);
  fs::copy_file(from, to, fs::copy_options::overwrite_existing);
  fs::copy_file(from + suffix, to + suffix, fs::copy_options::overwrite_existing);
  return to;
}

TEST(Database, AForeignIndexIsReadWithoutWritingOrItsProblemIsNamed) {
  testing::TestIndex index;
  const auto f = index.file("a.py");
  const auto a = index.symbol(f, "a");
  index.symbol(f, "b");
  index.edge(a, a);
  index.close();
  {
    Database writer = Database::open_writable(index.path());
    writer.execute("PRAGMA journal_mode = WAL");
  }
  // In WAL mode with an empty log: read as it is, nothing created beside it.
  const auto before = names_beside(index.path());
  const std::string bytes = testing::file_bytes(index.path());
  {
    Repository repo(index.path());
    EXPECT_EQ(repo.get_stats().at("symbols"), 2);
    EXPECT_EQ(repo.callers_of({a}).size(), 1u);
  }
  EXPECT_EQ(names_beside(index.path()), before);
  EXPECT_EQ(testing::file_bytes(index.path()), bytes);

  std::vector<std::pair<std::string, std::string>> cases;
  {
    // A log that still holds a change: only readable through a new -shm file.
    Database writer = Database::open_writable(index.path());
    writer.execute("PRAGMA wal_autocheckpoint = 0; UPDATE symbols SET name = 'c' WHERE id = 1");
    cases.emplace_back(copy_with(index.path(), "-wal"), "WAL mode");
  }
  {
    // A hot journal: a writer's half-done transaction that only a writer may roll back.
    Database writer = Database::open_writable(index.path());
    writer.execute(
        "PRAGMA journal_mode = DELETE; PRAGMA cache_size = 1; BEGIN; "
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 3000) "
        "INSERT INTO pending_references (target_name) SELECT printf('%0200d', i) FROM n");
    cases.emplace_back(copy_with(index.path(), "-journal"), "hot journal");
    writer.execute("ROLLBACK");
  }
  for (const auto& [path, message] : cases) {
    const auto listed = names_beside(path);
    try {
      Repository repo(path);
      repo.get_stats();
      ADD_FAILURE() << message << ": opened";
    } catch (const DatabaseError& error) {
      EXPECT_NE(error.message().find(message), std::string::npos) << error.message();
      EXPECT_NE(error.message().find("quarry index again"), std::string::npos) << error.message();
    }
    EXPECT_EQ(names_beside(path), listed) << message;
    fs::remove(path);
    fs::remove(path + "-wal");
    fs::remove(path + "-journal");
  }
}

// A REAL outside the 64-bit range where an integer belongs: NULL where the column may be
// NULL, an error naming table, column and row where it may not; never a cast out of range.
TEST(Database, AnIntegerColumnHoldingAHugeRealIsNullOrANamedError) {
  testing::TestIndex index;
  const auto f = index.file("a.py");
  const auto caller = index.symbol(f, "caller");
  const auto callee = index.symbol(f, "callee");
  const auto bad = index.symbol(f, "bad", "function", "m.bad");
  index.edge(caller, callee, "call", "exact", 3);
  index.execute(
      "UPDATE edges SET line = 1e300; UPDATE symbols SET start_line = -1e300 WHERE id = " +
      std::to_string(bad));
  auto repo = index.open();
  const auto callers = repo->callers_of({callee});
  ASSERT_EQ(callers.size(), 1u);
  EXPECT_EQ(callers[0].call_line, std::nullopt);
  try {
    repo->get_symbol_by_fqn("m.bad");
    ADD_FAILURE() << "read";
  } catch (const DatabaseError& error) {
    EXPECT_NE(
        error.message().find("table 'symbols', column 'start_line', row " + std::to_string(bad)),
        std::string::npos)
        << error.message();
  }
  EXPECT_THROW(to_int(Value{1e300}), std::range_error);
  EXPECT_EQ(to_optional_int(Value{-1e300}), std::nullopt);
}

}  // namespace
}  // namespace quarry
