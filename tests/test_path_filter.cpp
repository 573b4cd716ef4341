#include <gtest/gtest.h>

#include <set>

#include "test_index.h"
#include "utils/path_filter.h"

namespace quarry {
namespace {

struct PathCase {
  std::string path;
  bool is_test;
};

const std::vector<PathCase> PATH_CASES = {
    {"tests/helpers.py", true},
    {"src/test/java/App.java", true},
    {"pkg/testing/util.go", true},
    {"web/__tests__/app.js", true},
    {"spec/models/user.rb", true},
    {"a/specs/b/c.rb", true},
    {"test_cart.py", true},
    {"pkg/test_.py", true},
    {"cart_test.go", true},
    {"cart_tests.py", true},
    {"user_spec.rb", true},
    {"cart_test.extra.py", true},
    {"app.test.js", true},
    {"app.spec.ts", true},
    {"pkg/conftest.py", true},
    // Not tests: the rule is exact and case-sensitive, and looks only where it says.
    {"src/app.py", false},
    {"tests", false},         // a file called tests, not a directory
    {"Tests/app.py", false},  // case-sensitive
    {"TEST_cart.py", false},
    {"contest.py", false},
    {"latest/app.py", false},  // a segment that merely ends in "test"
    {"testdata/app.py", false},
    {"attest_x.py", false},         // "test_" must begin the name
    {"app.py.test_x", false},       // "_test" must end the part before the first "."
    {"pkg/my_test/app.py", false},  // a directory named like a test file
    {"app.testing.js", false},
    {"conftest.pyc", false},
    {"src/protest.spec", false},  // ".spec" needs a "." after it
    {"", false},
};

TEST(PathFilter, OneRuleInCodeAndInSql) {
  testing::TestIndex index;
  for (const auto& c : PATH_CASES)
    index.file(c.path);
  auto repo = index.open();

  for (bool exclude : {false, true}) {
    for (const char* via : {"id", "path"}) {
      const auto [predicate, params] = sql_test_path_filter("f", exclude, via);
      EXPECT_TRUE(params.empty());
      std::set<std::string> selected;
      for (const Row& row : repo->db().fetchall("SELECT f.path FROM files f WHERE " + predicate)) {
        selected.insert(to_text(row[0]));
      }
      for (const auto& c : PATH_CASES) {
        EXPECT_EQ(is_test_path(c.path), c.is_test) << c.path;
        EXPECT_EQ(selected.contains(c.path), c.is_test != exclude)
            << c.path << " exclude=" << exclude << " via=" << via;
      }
    }
  }
}

TEST(PathFilter, RejectsWhatCannotBeWrittenIntoSql) {
  EXPECT_THROW(sql_test_path_filter("f; DROP TABLE files", true), std::invalid_argument);
  EXPECT_THROW(sql_test_path_filter("", true), std::invalid_argument);
  EXPECT_THROW(sql_test_path_filter("f", true, "name"), std::invalid_argument);
}

}  // namespace
}  // namespace quarry
