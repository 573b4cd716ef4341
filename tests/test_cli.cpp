#include <gtest/gtest.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <sstream>

#include "test_index.h"

namespace quarry {
namespace {

using Result = testing::CliResult;
constexpr auto run = testing::run_cli;

// A copy of the example index, so that a test can check its bytes afterwards.
class CliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Tests run in parallel processes: each takes a copy of its own.
    db = ::testing::TempDir() + "quarry_cli_" +
         ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".db";
    std::filesystem::copy_file(QUARRY_EXAMPLE_DB, db,
                               std::filesystem::copy_options::overwrite_existing);
  }
  void TearDown() override { std::filesystem::remove(db); }
  std::string db;
};

TEST_F(CliTest, ErrorsExitWithTheirStatusAndOneLine) {
  testing::TestIndex no_edges;
  no_edges.execute("DROP TABLE edges");
  no_edges.close();
  const std::string not_sqlite = ::testing::TempDir() + "quarry_cli_text.db";
  std::ofstream(not_sqlite) << "plain text, certainly not an SQLite database file at all";

  struct Case {
    std::vector<std::string> args;
    int status;
    std::string message;
  };
  const std::vector<Case> cases = {
      {{"--db", "/nonexistent/index.db", "stats"}, 1, "/nonexistent/index.db: no such file"},
      {{"--db", not_sqlite, "callers", "1"}, 1, "file is not a database"},
      {{"--db", no_edges.path(), "stats"}, 1, "no table 'edges'"},
      {{"--db", db, "callers", "no.such.symbol"}, 1, "no symbol named 'no.such.symbol'"},
      {{"--db", db, "callers", "12", "--limit", "-1"}, 2, "--limit"},
      {{"--db", db, "callers", "12", "--limit", "3x"}, 2, "'3x'"},
      {{"--db", db, "callers", "99999999999999999999"}, 2, "SYMBOL"},
      {{"--db", db, "callers"}, 2, "SYMBOL"},
      {{"--db", db, "frobnicate"}, 2, "unknown command 'frobnicate'"},
      {{"--db", db, "stats", "--bogus"}, 2, "--bogus"},
  };
  for (const auto& c : cases) {
    const Result r = run(c.args);
    EXPECT_EQ(r.status, c.status) << c.args.back();
    EXPECT_TRUE(r.err.starts_with("quarry: error: ")) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
  }
  std::filesystem::remove(not_sqlite);
}

TEST_F(CliTest, CallersJsonHasTheContractKeysInOrder) {
  // Global options may follow the command; an id and a name may be mixed.
  const Result r = run({"callers", "shop.cart.Cart.total", "11", "--json", "--db", db});
  ASSERT_EQ(r.status, 0) << r.err;
  const auto json = nlohmann::ordered_json::parse(r.out);
  ASSERT_EQ(json.size(), 4u);
  std::vector<std::string> keys;
  for (const auto& [key, value] : json[0].items())
    keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"of", "id", "name", "kind", "fqn", "path", "line",
                                            "resolution", "total", "call_line"}));
  EXPECT_EQ(json[0]["of"], 11);
  EXPECT_EQ(json[0]["fqn"], "shop.api.handlers.handle_checkout");
  EXPECT_EQ(json[1]["fqn"], "tests.test_cart.test_checkout");
  EXPECT_EQ(json[2]["fqn"], "shop.billing.tax.compute_tax");
  EXPECT_EQ(json[3]["call_line"], 23);
  EXPECT_EQ(json[3]["total"], 2);
}

TEST_F(CliTest, TextNamesCallSitesAsPathAndLine) {
  const Result r = run({"--db", db, "callers", "shop.cart.Cart.total", "--limit", "1"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("2 proven callers (1 shown)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("shop/billing/tax.py:6"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("shop/cart.py:23"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("\x1b["), std::string::npos);
}

TEST_F(CliTest, QueriesLeaveTheIndexUnchanged) {
  const std::string before = testing::file_bytes(db);
  const std::vector<std::vector<std::string>> commands = {
      {"stats"},
      {"stats", "--json"},
      {"callers", "12", "13"},
      {"callers", "--guessed", "21"},
      {"callers", "shop.cart.checkout", "--json", "--limit", "0"}};
  for (auto args : commands) {
    args.insert(args.begin(), {"--db", db});
    EXPECT_EQ(run(args).status, 0);
    EXPECT_EQ(testing::file_bytes(db), before);
  }
  EXPECT_FALSE(std::filesystem::exists(db + "-journal"));
}

}  // namespace
}  // namespace quarry
