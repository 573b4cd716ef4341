#include <gtest/gtest.h>

#include <set>
#include <string>

#include "indexer/indexer.h"
#include "indexer/source_files.h"
#include "storage/repository.h"
#include "test_index.h"

namespace quarry {
namespace {

using testing::TempTree;

// Excluded files are not indexed at all: no file row, no symbol, no use of what they call.
TEST(IndexOptions, ExcludedFilesAreNotIndexed) {
  TempTree tree({{"app/main.py", "def used(): pass\ndef unused(): pass\n"},
                 {"app/vendor/lib.py", "from app.main import used\nused()\n"},
                 {"app/gen_a.py", "def g(): pass\n"},
                 {"tools/vendor/other.py", "def v(): pass\n"},
                 {"README.md", "x"}});
  const std::string db = tree.db();
  const auto summary = indexer::build_index(
      {.root = tree.root(), .db_path = db, .exclude = {"vendor/", "app/gen_*.py"}});
  EXPECT_EQ(summary.files, 2u);
  Repository repo(db);
  EXPECT_EQ(repo.get_stats().at("files"), 2);
  EXPECT_FALSE(repo.get_symbol_by_fqn("app.vendor.lib"));
  EXPECT_FALSE(repo.get_symbol_by_fqn("app.gen_a.g"));
  std::set<std::string> dead;
  for (const auto& symbol : repo.get_dead_code({.limit = 100}).symbols)
    dead.insert(symbol.fqn);
  EXPECT_EQ(dead, (std::set<std::string>{"app.main.unused", "app.main.used"}));
}

// Configured entry points are exported like packaging ones: the function, a method, one
// reached through a re-export; what they call is used. A name that names nothing warns.
TEST(IndexOptions, ConfiguredEntryPointsCountAsUsed) {
  TempTree tree({{"app/__init__.py", "from .cli import serve\n"},
                 {"app/cli.py",
                  "def helper(): pass\ndef start():\n    helper()\ndef serve(): pass\n"
                  "def spare(): pass\nclass Job:\n    def run(self): pass\n"
                  "    def stop(self): pass\n"}});
  const auto dead_after = [&](const std::vector<std::string>& entry_points,
                              std::vector<std::string> warnings) {
    const auto summary = indexer::build_index(
        {.root = tree.root(), .db_path = tree.db(), .entry_points = entry_points});
    EXPECT_EQ(summary.warnings, warnings);
    std::set<std::string> dead;
    for (const auto& symbol : Repository(tree.db()).get_dead_code({.limit = 100}).symbols)
      dead.insert(symbol.fqn);
    return dead;
  };
  EXPECT_EQ(dead_after({}, {}),
            (std::set<std::string>{"app.cli.start", "app.cli.spare", "app.cli.Job",
                                   "app.cli.Job.run", "app.cli.Job.stop"}));
  EXPECT_EQ(dead_after({"app.cli.start", "app.cli.Job.run", "app.serve", "app", "app.nothing",
                        "not a name"},
                       {"entry point 'app.nothing' names no definition; ignored",
                        "entry point 'not a name' names no definition; ignored"}),
            (std::set<std::string>{"app.cli.spare", "app.cli.Job.stop"}));
  // The re-export is followed to what it binds (an import is a use, so it was never dead).
  EXPECT_TRUE(Repository(tree.db()).get_symbol_by_fqn("app.cli.serve")->is_export);
}

}  // namespace
}  // namespace quarry
