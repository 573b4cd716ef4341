#include <gtest/gtest.h>

#include <fstream>

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
