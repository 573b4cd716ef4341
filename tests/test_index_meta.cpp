#include <gtest/gtest.h>
#include <sys/wait.h>

#include <stdexcept>
#include <tuple>

#include "indexer/indexer.h"
#include "indexer/source_files.h"
#include "storage/index_meta.h"
#include "test_index.h"
#include "utils/git_head.h"

namespace quarry {
namespace {

namespace fs = std::filesystem;
using testing::SourceTree;
using testing::TempTree;

// Runs git in `dir`; the output without its newline, or nothing when git fails.
std::optional<std::string> git(const fs::path& dir, std::vector<std::string> args) {
  args.insert(args.begin(), {"git", "-C", dir.string(), "-c", "user.name=q", "-c",
                             "user.email=q@example.com", "-c", "init.defaultBranch=main"});
  auto out = indexer::run_program(args);
  if (out && out->ends_with('\n')) out->pop_back();
  return out;
}

const std::vector<std::string> COMMIT = {"commit", "-q", "--allow-empty", "-m", "c"};

TEST(GitHead, ReadsTheCommitOfEveryLayout) {
  struct Case {
    const char* name;
    std::vector<std::vector<std::string>> commands;  // run in repo/
    std::string from = "repo/sub";                   // where HEAD is read
    bool committed = true;                           // else no commit is expected
  };
  const std::vector<Case> cases = {
      {"no commits", {}, "repo", false},
      {"one commit", {COMMIT}},
      {"detached", {COMMIT, COMMIT, {"checkout", "-q", "--detach", "HEAD~1"}}},
      {"packed refs", {COMMIT, {"pack-refs", "--all"}}},
      {"linked worktree",
       {COMMIT,
        {"worktree", "add", "-q", "-b", "side", "../linked"},
        {"-C", "../linked", "commit", "-q", "--allow-empty", "-m", "side"}},
       "linked"},
      {"linked worktree, packed",
       {COMMIT,
        {"worktree", "add", "-q", "--detach", "../linked"},
        {"-C", "../linked", "checkout", "-q", "-b", "side"},
        {"pack-refs", "--all"}},
       "linked"},
      {"outside a repository", {}, "elsewhere", false},
      {"bad .git file", {{"!gitfile", "gitdir"}}, "repo", false},
      {"HEAD outside refs", {COMMIT, {"symbolic-ref", "HEAD", "refs/../../config"}}, "repo", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempTree tree(SourceTree{{"repo/sub/a.py", ""}, {"elsewhere/b.py", ""}});
    const fs::path repo = tree.root() / "repo";
    if (!git(repo, {"init", "-q"})) GTEST_SKIP() << "no git";
    for (const auto& command : c.commands) {
      if (command[0] == "!gitfile") {
        fs::remove_all(repo / ".git");
        tree.write("repo/.git", command[1]);
      } else {
        std::ignore = git(repo, command);  // symbolic-ref refuses a bad name; write it then
        if (command[0] == "symbolic-ref") tree.write("repo/.git/HEAD", "ref: " + command[2]);
      }
    }
    const fs::path from = tree.root() / c.from;
    const auto expected = c.committed ? git(from, {"rev-parse", "HEAD"}) : std::nullopt;
    ASSERT_EQ(expected.has_value(), c.committed);
    EXPECT_EQ(git_head_commit(from), expected);
  }
}

TEST(IndexMeta, RecordsRootVersionsAndCommit) {
  TempTree tree(SourceTree{{"a.py", "def f(): pass\n"}});
  const auto meta = [&] { return Repository(tree.db()).index_meta(); };
  const auto version = testing::run_cli({"--version"}).out;
  ASSERT_EQ(testing::run_cli({"index", tree.root().string() + "/./"}).status, 0);
  EXPECT_EQ(meta().root, tree.root().lexically_normal().string());
  EXPECT_EQ(meta().quarry_version.value_or("") + "\n", version);
  EXPECT_EQ(meta().schema_version, INDEX_SCHEMA_VERSION);
  EXPECT_TRUE(meta().indexed_at && meta().indexed_at->ends_with('Z'));
  EXPECT_EQ(meta().git_commit, std::nullopt);
  EXPECT_FALSE(index_is_stale(meta(), tree.root()));

  if (!git(tree.root(), {"init", "-q"}) || !git(tree.root(), COMMIT)) GTEST_SKIP() << "no git";
  tree.index();
  EXPECT_EQ(meta().git_commit, git(tree.root(), {"rev-parse", "HEAD"}));
  EXPECT_FALSE(index_is_stale(meta(), tree.root()));
  // The index's directory ignores itself: git sees nothing new.
  EXPECT_EQ(git(tree.root(), {"status", "--porcelain", "--untracked-files=all"}), "?? a.py");
  ASSERT_TRUE(git(tree.root(), COMMIT));
  EXPECT_TRUE(index_is_stale(meta(), tree.root()));
}

TEST(IndexMeta, ReadsWhatIsWellFormedAndNothingElse) {
  const std::string commit(40, 'a');
  const std::vector<std::pair<std::string, IndexMeta>> cases = {
      {"", {}},
      {"CREATE TABLE meta (key TEXT, other TEXT); INSERT INTO meta VALUES ('root', '/r')", {}},
      {"CREATE TABLE meta (key TEXT PRIMARY KEY, value TEXT NOT NULL); INSERT INTO meta VALUES "
       "('root', '/r'), ('quarry_version', '1.2'), ('schema_version', '3'), ('git_commit', '" +
           commit + "'), ('indexed_at', 'now')",
       {"/r", "1.2", commit, "now", 3}},
      {"CREATE TABLE meta (key, value); INSERT INTO meta VALUES ('root', 7), ('root', '/r'), "
       "('quarry_version', x'31'), ('schema_version', '3x'), ('git_commit', 'HEAD'), "
       "(1, 'indexed_at'), ('indexed_at', 'then')",
       {.indexed_at = "then"}},
      {"CREATE TABLE meta (key, value); INSERT INTO meta VALUES ('schema_version', 2.5), "
       "('root', NULL)",
       {}},
      {"CREATE TABLE meta (key, value); INSERT INTO meta VALUES ('schema_version', 2)",
       {.schema_version = 2}},
  };
  for (const auto& [sql, expected] : cases) {
    SCOPED_TRACE(sql);
    testing::TestIndex index;
    if (!sql.empty()) index.execute(sql);
    EXPECT_EQ(index.open()->index_meta(), expected);
  }
}

TEST(IndexMeta, FindsTheNearestIndexUpward) {
  TempTree tree(SourceTree{{".quarry/index.db", ""}, {"a/.quarry/index.db/x", ""}});
  fs::create_directories(tree.root() / "a/b/c");
  const fs::path found = tree.root() / ".quarry/index.db";
  EXPECT_EQ(find_index(tree.root() / "a/b/c"), found);  // a/'s is a directory
  EXPECT_EQ(find_index(tree.root() / "a/b/../b/c/"), found);
  EXPECT_EQ(find_index(tree.root()), found);
  tree.write("a/b/.quarry/index.db", "");
  EXPECT_EQ(find_index(tree.root() / "a/b/c"), tree.root() / "a/b/.quarry/index.db");
  fs::remove_all(tree.root() / ".quarry");
  EXPECT_EQ(find_index(tree.root() / "a"), std::nullopt);
}

TEST(IndexMeta, GitignoreBesideTheIndexIsWrittenOnce) {
  TempTree tree(SourceTree{{"a.py", ""}});
  const fs::path ignore = tree.root() / ".quarry/.gitignore";
  tree.index();
  EXPECT_EQ(testing::file_bytes(ignore.string()), "*\n!baseline.json\n");
  tree.write(".quarry/.gitignore", "index.db\n");
  tree.index();
  EXPECT_EQ(testing::file_bytes(ignore.string()), "index.db\n");
  indexer::build_index({.root = tree.root(), .db_path = (tree.root() / "out/i.db").string()});
  EXPECT_FALSE(fs::exists(tree.root() / "out/.gitignore"));
}

// A worker's fault ends the run with the file named, leaves the previous index, and is an
// error of the command, not a crash.
TEST(Indexer, WorkerFaultsReachTheCaller) {
  struct Case {
    std::string_view phase;
    bool runtime;
    std::string cli_error;
  };
  const std::vector<Case> cases = {
      {indexer::PHASE_PARSING, true, "quarry: error: b.py: cannot be indexed: boom\n"},
      {indexer::PHASE_RESOLVING, false, "quarry: internal error: b.py: cannot be indexed: boom\n"},
  };
  TempTree tree(SourceTree{{"a.py", "def f(): pass\n"}, {"b.py", "def g(): pass\n"}});
  tree.index();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.phase);
    indexer::worker_fault_for_tests = [&](std::string_view phase, const std::string& path) {
      if (phase != c.phase || path != "b.py") return;
      if (c.runtime) throw std::runtime_error("boom");
      throw std::out_of_range("boom");
    };
    for (const bool with_progress : {false, true}) {
      indexer::IndexOptions options{.root = tree.root(), .db_path = tree.db(), .threads = 2};
      // With progress, the calling thread reports while the workers run.
      if (with_progress) options.progress = [](std::string_view, std::size_t, std::size_t) {};
      try {
        indexer::build_index(options);
        ADD_FAILURE() << "no exception";
      } catch (const std::exception& error) {
        EXPECT_EQ(dynamic_cast<const std::runtime_error*>(&error) != nullptr, c.runtime);
        EXPECT_EQ(std::string(error.what()), "b.py: cannot be indexed: boom");
      }
    }
    const auto result = testing::run_cli({"index", tree.root().string()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, c.cli_error);
    EXPECT_EQ(Repository(tree.db()).get_stats().at("files"), 2);
  }
  indexer::worker_fault_for_tests = nullptr;
}

// Warnings name the line where one is known; progress reports every phase to its end.
TEST(Indexer, WarningsNameLinesAndProgressCoversEveryPhase) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"def ok(): pass\n\ndef broken(:\n    pass\n", "m.py:3: syntax errors"},
      {"x = 1\ny = (1,\nz = 2\n", "m.py:2: syntax errors"},
      {"def f():\n    return 1 +\n", "m.py:2: syntax errors"},
      {std::string(2048, '#'), "m.py: not indexed: 2.0 KiB"},
  };
  for (const auto& [source, warning] : cases) {
    SCOPED_TRACE(source);
    TempTree tree(SourceTree{{"m.py", source}});
    std::vector<std::string> ends;
    const auto summary = indexer::build_index(
        {.root = tree.root(),
         .db_path = tree.db(),
         .max_file_size = 1024,
         .progress = [&](std::string_view phase, std::size_t done, std::size_t total) {
           if (done == total && total > 0) ends.emplace_back(phase);
         }});
    ASSERT_EQ(summary.warnings.size(), 1u);
    EXPECT_TRUE(summary.warnings[0].starts_with(warning)) << summary.warnings[0];
    EXPECT_EQ(ends, (std::vector<std::string>{"listing files", "parsing", "resolving", "writing"}));
    const std::string err = (tree.root() / "err.txt").string();
    const pid_t pid =
        testing::start_quarry({"index", tree.root().string(), "--max-file-size=1K"}, -1, err);
    int status = -1;
    ASSERT_TRUE(pid > 0 && waitpid(pid, &status, 0) == pid);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(testing::file_bytes(err).starts_with("quarry: warning: " + warning))
        << testing::file_bytes(err);
  }
}

}  // namespace
}  // namespace quarry
