#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <set>
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
      {{"--db", db, "callers"}, 2, "SYMBOL"},
      // A missing or empty value is a usage error, whichever command and however written.
      {{"--db=", db, "stats"}, 2, "--db needs a value"},
      {{"--db", "", "stats"}, 2, "--db needs a value"},
      {{"--db", db, "callers", "12", "--limit="}, 2, "--limit needs a value"},
      {{"--db", db, "callers", "12", "--limit", ""}, 2, "--limit needs a value"},
      {{"--db", db, "impact", "shop.cart.Cart.total", "--depth", ""}, 2, "--depth"},
      {{"--db", db, "dead-code", "--component="}, 2, "--component"},
      {{"index", "--max-file-size", "4X", "."}, 2, "--max-file-size takes a size"},
      // Names from the user or the index reach the terminal escaped.
      {{"--db", db, "callers", "evil\x1b]0;owned\x07"}, 1, "'evil\\x1b]0;owned\\x07'"},
      {{"--db", db, "frobnicate"}, 2, "unknown command 'frobnicate'"},
      // An unknown name or component is the user's, not the index's.
      {{"--db", db, "impact", "no.such.symbol"}, 1, "no symbol named 'no.such.symbol'"},
      {{"--db", db, "--json", "impact", "no.such"}, 1, "no symbol named 'no.such'"},
      {{"--db", db, "dead-code", "--component", "nope"}, 1, "no component named 'nope'"},
      // The gate and the baseline.
      {{"--db", db, "dead-code", "--fail-on", "some"}, 2, "--fail-on takes certain, likely"},
      {{"--db", db, "cycles", "--fail-on", "certain"}, 2, "--fail-on takes any, not 'certain'"},
      {{"--db", db, "dead-code", "--baseline", not_sqlite}, 2, "not a quarry baseline"},
      {{"--db", db, "cycles", "--baseline", "/nonexistent/b.json"}, 2, "quarry baseline"},
      {{"--db", db, "--config", not_sqlite, "dead-code"}, 2, not_sqlite},
      {{"--db", db, "--config", "/nonexistent/quarry.toml", "stats"}, 2, "cannot be read"},
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

TEST_F(CliTest, AnIdBeyondTheIntegerRangeMatchesNoSymbol) {
  const Result r = run({"--db", db, "callers", "99999999999999999999", "12"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(r.out.starts_with("#99999999999999999999: no proven callers\n")) << r.out;
  EXPECT_TRUE(r.out.ends_with("2 callers of 2 symbols\n")) << r.out;
  // An id in range that matches no symbol is shown once.
  EXPECT_EQ(run({"--db", db, "callers", "99999"}).out,
            "#99999: no proven callers\n0 callers of 1 symbol\n");
  EXPECT_EQ(
      nlohmann::json::parse(run({"--db", db, "callers", "--json", "99999999999999999999"}).out),
      nlohmann::json::array());
}

// Control characters in an index's names would drive the terminal: text shows them as
// escapes, JSON carries them exactly.
TEST_F(CliTest, TextEscapesControlCharactersAndJsonKeepsThem) {
  const std::string path = "pkg/\x1b]0;owned\x07\r.py";
  const std::string name = "f\x1b[2J\xc2\x9b\xe2\x80\xae\xff";
  testing::TestIndex index;
  const auto component = index.component("pkg\x1b[31m");
  const auto a = index.file(path, "python", component);
  const auto b = index.file("pkg/b.py", "python", index.component("other"));
  const auto f = index.symbol(a, name, "function", "pkg." + name, 3);
  const auto g = index.symbol(b, "g", "function", "pkg.b.g", 1);
  index.edge(g, f, "call", "exact", 2);
  index.edge(f, g, "call", "exact", 4);
  index.close();
  const std::string escaped_path = "pkg/\\x1b]0;owned\\x07\\x0d.py";
  const std::string escaped_name = "f\\x1b[2J\\u{9b}\\u{202e}\\xff";
  const std::vector<std::vector<std::string>> commands = {
      {"callers", std::to_string(f)},
      {"callers", std::to_string(g)},
      {"impact", "pkg.b.g"},
      {"dead-code", "--limit", "5"},
      {"cycles"},
      {"cycles", "--level", "file"},
  };
  bool saw_path = false, saw_name = false;
  for (auto args : commands) {
    args.insert(args.begin(), {"--db", index.path()});
    const Result r = run(args);
    ASSERT_EQ(r.status, 0) << args[2] << r.err;
    for (const char raw : {'\x1b', '\x07', '\r', '\xff'})
      EXPECT_EQ(r.out.find(raw), std::string::npos) << args[2] << ": " << r.out;
    EXPECT_EQ(r.out.find("\xe2\x80\xae"), std::string::npos) << r.out;
    saw_path = saw_path || r.out.find(escaped_path) != std::string::npos;
    saw_name = saw_name || r.out.find(escaped_name) != std::string::npos;
  }
  EXPECT_TRUE(saw_path && saw_name);
  const Result json = run({"--db", index.path(), "--json", "callers", std::to_string(g)});
  EXPECT_EQ(nlohmann::json::parse(json.out)[0]["path"], path);
}

// Runs the quarry program with its standard output on `stdout_fd`; returns its exit status
// and what it wrote on standard error.
std::pair<int, std::string> run_program_to(std::vector<std::string> args, int stdout_fd) {
  const std::string err_path =
      ::testing::TempDir() + "quarry_cli_stderr_" + std::to_string(getpid());
  const pid_t pid = testing::start_quarry(std::move(args), stdout_fd, err_path);
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return {-1, "cannot run quarry"};
  std::string err = testing::file_bytes(err_path);
  std::filesystem::remove(err_path);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), err};
}

TEST_F(CliTest, OutputThatCannotBeWrittenIsAnErrorButAClosedPipeIsNot) {
  const std::vector<std::string> args{"--db", db, "dead-code", "--json"};
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  const auto [full_status, full_err] = run_program_to(args, full);
  close(full);
  EXPECT_EQ(full_status, 1);
  EXPECT_EQ(full_err, "quarry: error: cannot write the output: No space left on device\n");

  int fds[2];
  ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
  close(fds[0]);  // the reader is gone before anything is written
  const auto [pipe_status, pipe_err] = run_program_to(args, fds[1]);
  close(fds[1]);
  EXPECT_EQ(pipe_status, 0);
  EXPECT_EQ(pipe_err, "");
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

// Every query command, on an index in WAL mode or not, in a writable directory or not:
// neither the index's bytes nor the directory's listing change.
TEST_F(CliTest, QueriesWriteNothing) {
  const std::vector<std::vector<std::string>> commands = {
      {"stats"},
      {"stats", "--json"},
      {"callers", "12", "13"},
      {"callers", "--guessed", "21", "--json"},
      {"impact", "shop.cart.Cart.total", "--depth", "5"},
      {"impact", "shop.cart.Cart.total", "--json", "--include-tests"},
      {"dead-code"},
      {"dead-code", "--json", "--limit", "2"},
      {"cycles"},
      {"cycles", "--level", "file", "--json"},
      {"cycles", "--format", "dot"}};
  for (const bool wal : {false, true}) {
    for (const bool read_only : {false, true}) {
      const std::filesystem::path dir = ::testing::TempDir() + "quarry_cli_dir_" +
                                        std::to_string(getpid()) + (wal ? "_wal" : "") +
                                        (read_only ? "_ro" : "");
      std::filesystem::create_directories(dir);
      const std::string index = (dir / "index.db").string();
      std::filesystem::copy_file(db, index, std::filesystem::copy_options::overwrite_existing);
      if (wal) Database::open_writable(index).execute("PRAGMA journal_mode = WAL");
      const auto listing = [&] {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(dir))
          names.insert(entry.path().filename().string());
        return names;
      };
      const auto names = listing();
      const std::string bytes = testing::file_bytes(index);
      if (read_only)
        std::filesystem::permissions(
            dir, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
      for (auto args : commands) {
        args.insert(args.begin(), {"--db", index});
        const Result r = run(args);
        EXPECT_EQ(r.status, 0) << args[2] << (wal ? " wal" : "") << ": " << r.err;
        EXPECT_EQ(listing(), names) << args[2] << (wal ? " wal" : "");
        EXPECT_EQ(testing::file_bytes(index), bytes) << args[2];
      }
      std::filesystem::permissions(dir, std::filesystem::perms::owner_all);
      std::filesystem::remove_all(dir);
    }
  }
}

}  // namespace
}  // namespace quarry
