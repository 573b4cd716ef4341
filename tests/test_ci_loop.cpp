// The CI recipe of the README, run on the bundled example project: the gate fails on
// findings, passes once they are in the baseline, fails again on a new one alone, and keeps
// a baselined finding hidden when lines move above it. Then the same project asked from a
// subdirectory, without --db.
#include <gtest/gtest.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "storage/repository.h"
#include "test_index.h"

namespace quarry {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

class CiLoop : public ::testing::Test {
 protected:
  void SetUp() override {
    root = testing::copy_example_project("quarry_ci_loop");
    index();
  }
  void TearDown() override {
    fs::current_path(saved_cwd);
    fs::remove_all(root);
  }

  void index() { ASSERT_EQ(testing::run_cli({"index", root.string()}).status, 0); }

  testing::CliResult query(std::vector<std::string> args) {
    args.insert(args.begin(), {"--db", db().string()});
    return testing::run_cli(std::move(args));
  }

  fs::path db() const { return root / ".quarry" / "index.db"; }
  fs::path baseline() const { return root / ".quarry" / "baseline.json"; }

  // Prepends `lines` empty lines to the file at `relative`.
  void shift(const std::string& relative, int lines) {
    std::ifstream in(root / relative);
    std::stringstream text;
    text << in.rdbuf();
    std::ofstream(root / relative)
        << std::string(static_cast<std::size_t>(lines), '\n') << text.str();
  }

  fs::path root;
  fs::path saved_cwd = fs::current_path();
};

TEST_F(CiLoop, GateFailsOnlyOnFindingsTheBaselineDoesNotHold) {
  const std::string gate_baseline = "--baseline=" + baseline().string();
  struct Step {
    std::vector<std::string> args;
    int status;
  };
  // Before any baseline: certain dead code and cycles fail their gates.
  for (const Step& step : std::vector<Step>{
           {{"dead-code", "--fail-on", "certain"}, 3},
           {{"dead-code", "--fail-on", "likely"}, 3},
           {{"dead-code", "--fail-on", "any", "--component", "bookstore.storage"}, 3},
           {{"cycles", "--fail-on", "any"}, 3},
           {{"cycles", "--level", "file", "--fail-on", "any"}, 3},
           {{"dead-code"}, 0},
       }) {
    EXPECT_EQ(query(step.args).status, step.status) << step.args.front();
  }

  const auto written = query({"baseline"});
  ASSERT_EQ(written.status, 0) << written.err;
  ASSERT_TRUE(fs::exists(baseline())) << written.out;
  for (const Step& step : std::vector<Step>{
           {{"dead-code", "--fail-on", "any", gate_baseline}, 0},
           {{"cycles", "--fail-on", "any", gate_baseline}, 0},
           {{"cycles", "--level", "file", "--fail-on", "any", gate_baseline}, 0},
       }) {
    const auto r = query(step.args);
    EXPECT_EQ(r.status, step.status) << step.args.front() << r.out << r.err;
    EXPECT_NE(r.out.find("hidden by the baseline"), std::string::npos) << r.out;
  }

  // Lines move above a baselined finding, and a new dead function appears: only it fails.
  shift("bookstore/handlers.py", 7);
  std::ofstream(root / "bookstore" / "pricing.py", std::ios::app)
      << "\n\ndef brand_new_unused():\n    return 1\n";
  index();
  const auto gate = query({"--json", "dead-code", "--fail-on", "certain", gate_baseline});
  EXPECT_EQ(gate.status, 3) << gate.err;
  const Json page = Json::parse(gate.out);
  ASSERT_EQ(page["symbols"].size(), 1u) << gate.out;
  EXPECT_EQ(page["symbols"][0]["fqn"], "bookstore.pricing.brand_new_unused");
  EXPECT_EQ(page["total_count"], 1);
}

TEST_F(CiLoop, FromASubdirectoryTheIndexIsFoundAndPathsOpenFromThere) {
  fs::current_path(root / "bookstore" / "storage");
  const auto r = testing::run_cli({"dead-code"});
  ASSERT_EQ(r.status, 0) << r.err;
  // handlers.py:28 is shown as ../handlers.py:28, which opens from here.
  const auto at = r.out.find("../handlers.py:28");
  ASSERT_NE(at, std::string::npos) << r.out;
  EXPECT_TRUE(fs::exists("../handlers.py"));
  EXPECT_NE(r.out.find("orders.py:14"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("bookstore/handlers.py"), std::string::npos) << r.out;
}

TEST(CiConfiguration, ExcludeGlobsOfAFileAboveTheIndexedTreeApplyToIt) {
  testing::TempTree tree(testing::SourceTree{
      {"quarry.toml",
       "exclude = [\"sub/gen/\", \"*_skip.py\", \"other/a.py\", \"**/deep/*.py\"]\n"},
      {"sub/keep.py", ""},
      {"sub/gen/made.py", ""},
      {"sub/x_skip.py", ""},
      {"sub/other/a.py", ""},
      {"sub/lib/deep/d.py", ""},
  });
  const auto r = testing::run_cli({"--json", "index", (tree.root() / "sub").string()});
  ASSERT_EQ(r.status, 0) << r.err;
  Repository repo((tree.root() / "sub" / ".quarry" / "index.db").string());
  std::set<std::string> paths;
  for (const Row& row : repo.db().fetchall("SELECT path FROM files"))
    paths.insert(std::get<std::string>(row.at(0)));
  // other/a.py is anchored at the configuration's directory, where sub/other/a.py is not.
  EXPECT_EQ(paths, (std::set<std::string>{"keep.py", "other/a.py"}));
}

}  // namespace
}  // namespace quarry
