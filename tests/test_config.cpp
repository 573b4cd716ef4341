#include <gtest/gtest.h>

#include <string>

#include "config/config.h"
#include "test_index.h"

namespace quarry {
namespace {

namespace fs = std::filesystem;
using testing::TempTree;

// Every key, in both kinds of file; a pyproject.toml without the table is empty.
TEST(Config, ReadsEveryKeyFromEitherFile) {
  const std::string keys =
      "exclude = [\"vendor/\", \"**/gen\"]\nignore-names = [\"*.test_*\"]\n"
      "runtime-members = [\"handle\"]\nentry-points = [\"app.cli.main\", \"app.run\"]\n"
      "baseline = \"ci/baseline.json\"\nfail-on = \"likely\"\n";
  TempTree tree({{"quarry.toml", keys},
                 {"py/pyproject.toml", "[project]\nname = \"x\"\n[tool.quarry]\n" + keys +
                                           "[tool.other]\nexclude = 3\n"},
                 {"none/pyproject.toml", "[project]\nname = \"x\"\n[tool.black]\nx = 1\n"},
                 {"empty/quarry.toml", "exclude = []\n"}});
  Config expected{.exclude = {"vendor/", "**/gen"},
                  .ignore_names = {"*.test_*"},
                  .runtime_members = {"handle"},
                  .entry_points = {"app.cli.main", "app.run"},
                  .baseline = "ci/baseline.json",
                  .fail_on = "likely"};
  for (const char* path : {"quarry.toml", "py/pyproject.toml"}) {
    SCOPED_TRACE(path);
    expected.file = tree.root() / path;
    expected.directory = expected.file.parent_path();
    EXPECT_EQ(load_config(tree.root() / path), expected);
    EXPECT_EQ(expected.baseline_path(), expected.directory / "ci/baseline.json");
  }
  for (const char* path : {"none/pyproject.toml", "empty/quarry.toml"}) {
    const Config config = load_config(tree.root() / path);
    EXPECT_EQ(config, (Config{.file = tree.root() / path, .directory = config.file.parent_path()}))
        << path;
    EXPECT_EQ(config.baseline_path(), std::nullopt);
  }
}

// The nearest directory with a configuration wins; in it, a pyproject.toml with
// [tool.quarry] comes before a quarry.toml, and one without is passed over.
TEST(Config, FindsTheNearestConfigurationUpward) {
  const std::string with_table = "[tool.quarry]\nfail-on = \"any\"\n";
  TempTree tree({{"a/pyproject.toml", "[project]\nname = \"a\"\n"},
                 {"a/quarry.toml", "fail-on = \"certain\"\n"},
                 {"a/b/pyproject.toml", with_table},
                 {"a/b/quarry.toml", "fail-on = \"likely\"\n"},
                 {"a/b/c/d/quarry.toml", "exclude = []\n"},
                 {"a/b/c/d/e/.keep", ""},
                 {"x/broken/pyproject.toml", "[project\n"},
                 {"y/pyproject.toml", "[tool.quarry\n"}});
  const struct {
    std::string start, found;  // found: "" for none
  } cases[] = {
      {"a", "a/quarry.toml"},
      {"a/b", "a/b/pyproject.toml"},
      {"a/b/c", "a/b/pyproject.toml"},
      {"a/b/c/d/e", "a/b/c/d/quarry.toml"},
      {"x/broken", ""},
      {"", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.start);
    const auto config = find_config(tree.root() / c.start);
    if (c.found.empty()) {
      EXPECT_EQ(config, std::nullopt);
    } else {
      ASSERT_TRUE(config);
      EXPECT_EQ(config->file, tree.root() / c.found);
    }
  }
  EXPECT_EQ(find_config(tree.root() / "a/b")->fail_on, "any");
  // A pyproject.toml that speaks of quarry but does not parse is a broken configuration.
  EXPECT_THROW(find_config(tree.root() / "y"), ConfigError);
}

// Each fault throws one line naming the file, the line and the key.
TEST(Config, FaultsNameFileLineAndKey) {
  const struct {
    std::string file, text, message;  // message: after "PATH:"
  } cases[] = {
      {"pyproject.toml", "[tool.quarry]\nexclude = []\n\nignore_names = [\"x\"]\n",
       "4: unknown key 'ignore_names' in [tool.quarry]"},
      {"quarry.toml", "exclude = []\n[extra]\nx = 1\n", "2: unknown key 'extra'"},
      {"quarry.toml", "\n\nfail-on = \"some\"\n",
       "3: 'fail-on' takes certain, likely or any, not 'some'"},
      {"quarry.toml", "fail-on = \"a\\nb\"\n",
       "1: 'fail-on' takes certain, likely or any, not 'a\\nb'"},
      {"quarry.toml", "exclude = \"vendor\"\n",
       "1: 'exclude' takes an array of strings, not a string"},
      {"quarry.toml", "entry-points = [\n  \"a.b\",\n  3,\n]\n",
       "3: 'entry-points' takes an array of strings; item 2 is an integer"},
      {"quarry.toml", "runtime-members = [[\"x\"]]\n",
       "1: 'runtime-members' takes an array of strings; item 1 is an array"},
      {"quarry.toml", "\nbaseline = true\n", "2: 'baseline' takes a string, not a boolean"},
      {"pyproject.toml", "[tool]\nquarry = 1\n", "2: 'tool.quarry' takes a table, not an integer"},
      {"pyproject.toml", "[tool.quarry.sub]\nx = 1\n", "1: unknown key 'sub' in [tool.quarry]"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    TempTree tree(testing::SourceTree{{c.file, c.text}});
    const fs::path path = tree.root() / c.file;
    try {
      load_config(path);
      ADD_FAILURE() << "no error";
    } catch (const ConfigError& error) {
      EXPECT_EQ(std::string(error.what()), path.string() + ":" + c.message);
    }
  }
  // A syntax error gives the parser's line; an unreadable file its reason.
  TempTree tree({{"quarry.toml", "exclude = []\nfail-on = \n"}, {"dir/quarry.toml/x", ""}});
  for (const auto& [file, start] : {std::pair{"quarry.toml", ":2: "},
                                    std::pair{"missing.toml", ": cannot be read (No such file"},
                                    std::pair{"dir/quarry.toml", ": cannot be read ("}}) {
    const fs::path path = tree.root() / file;
    try {
      load_config(path);
      ADD_FAILURE() << file << ": no error";
    } catch (const ConfigError& error) {
      const std::string message = error.what();
      EXPECT_TRUE(message.starts_with(path.string() + start)) << message;
      EXPECT_EQ(message.find('\n'), std::string::npos) << message;
    }
  }
}

}  // namespace
}  // namespace quarry
