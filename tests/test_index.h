// A small index written by a test, in a temporary file removed at the end of the test.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "indexer/indexer.h"
#include "storage/database.h"
#include "storage/repository.h"

namespace quarry::testing {

class TestIndex {
 public:
  TestIndex();
  ~TestIndex();
  TestIndex(const TestIndex&) = delete;
  TestIndex& operator=(const TestIndex&) = delete;

  const std::string& path() const { return path_; }

  std::int64_t component(const std::string& name);
  std::int64_t file(const std::string& path, const std::string& language = "python",
                    std::optional<std::int64_t> component = std::nullopt);
  // A symbol; its fqn defaults to its name.
  std::int64_t symbol(std::int64_t file_id, const std::string& name,
                      const std::string& kind = "function", std::string fqn = "",
                      std::int64_t line = 1, std::optional<std::string> signature = std::nullopt,
                      bool is_export = false);
  void edge(std::int64_t source, std::int64_t target, const std::string& kind = "call",
            std::optional<std::string> resolution = "exact",
            std::optional<std::int64_t> line = std::nullopt);
  void pending(const std::string& target_name);
  // Runs any statement on the writable connection (to break the schema, say).
  void execute(const std::string& sql);

  // Commits what was written and opens the index read-only.
  std::unique_ptr<Repository> open();
  // Commits what was written and closes the writable connection.
  void close();

 private:
  std::int64_t insert(const std::string& sql, const Params& params);
  Database& writer();

  std::string path_;
  std::optional<Database> writer_;
  bool in_transaction_ = false;
};

// A fresh copy of a bundled example project (examples/EXAMPLE, without an index) in a
// temporary directory named after `name` and this process; the caller removes it.
std::filesystem::path copy_example_project(const std::string& name,
                                           const std::string& example = "bookstore");

// What one run of the command line printed, and its exit status.
struct CliResult {
  int status;
  std::string out;
  std::string err;
};

// Runs the command line in-process with `args` (the program name left out), without colour.
CliResult run_cli(std::vector<std::string> args);

// Starts the quarry program with `args` (the program name left out), its standard output
// on `stdout_fd` (/dev/null when -1) and its standard error in the file `stderr_path`
// (/dev/null when empty). Returns its pid, or -1 when it cannot be started.
pid_t start_quarry(std::vector<std::string> args, int stdout_fd = -1,
                   const std::string& stderr_path = "");

// The bytes of a file, to show that reading never changes it.
std::string file_bytes(const std::string& path);

using SourceTree = std::map<std::string, std::string>;
using EdgeRow = std::tuple<std::string, std::string, std::string, std::string>;

// A directory of sources written by a test (path -> text), removed at its end.
class TempTree {
 public:
  explicit TempTree(const SourceTree& files = {});
  ~TempTree();
  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;

  void write(const std::string& path, const std::string& text) const;
  const std::filesystem::path& root() const { return root_; }
  std::string db() const { return (root_ / ".quarry" / "index.db").string(); }
  // Indexes the tree into db() with two threads.
  indexer::IndexSummary index() const;

 private:
  std::filesystem::path root_;
};

// The edges of an index as (source fqn, target fqn, kind, resolution or "").
std::set<EdgeRow> edges_of(Repository& repo);

// The target names of the index's pending references.
std::set<std::string> pending_of(Repository& repo);

// A fixture project and what indexing it must give.
struct BindingCase {
  std::string name;
  SourceTree files;
  std::vector<EdgeRow> expected;
  std::vector<EdgeRow> absent;
  // Dead-code verdicts: fqn -> "certain", "likely", or "" for not listed.
  std::map<std::string, std::string> verdicts;
  // (source fqn, target fqn) pairs with no edge of any kind between them.
  std::vector<std::pair<std::string, std::string>> unrelated = {};
};

// Indexes the case's files and checks its edges and verdicts, naming the case on failure.
void check_binding(const BindingCase& c);

}  // namespace quarry::testing
