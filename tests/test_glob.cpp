#include <gtest/gtest.h>

#include <string>

#include "utils/glob.h"

namespace quarry {
namespace {

struct GlobCase {
  std::string pattern, text;
  bool expected;
};

TEST(Glob, FqnPatternsMatchAcrossDots) {
  const std::string many_a(200, 'a');
  const GlobCase cases[] = {
      {"app.cli.main", "app.cli.main", true},
      {"app.cli.main", "app.cli.mainx", false},
      {"app.*", "app.cli.main", true},
      {"app.*", "app", false},
      {"*.test_*", "pkg.mod.Case.test_one", true},
      {"*.test_*", "pkg.mod.Case.tests", false},
      {"", "", true},
      {"", "a", false},
      {"app.?", "app.a", true},
      {"app.?", "app.ab", false},
      {"*_[0-9]", "pkg.handler_7", true},
      {"*_[!0-9]", "pkg.handler_x", true},
      {"*_[^0-9]", "pkg.handler_7", false},
      {"[]x]y", "]y", true},
      {"a[b", "a[b", true},
      {"a\\*b", "a*b", true},
      {"*a*b*c", "xxaxxbxxc", true},
      {"*a*b*c", "xxaxxcxxb", false},
      {"*ab", "aab", true},
      // Exponential for a matcher that backtracks into every star.
      {"*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*b", many_a, false},
      {"*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a*a", many_a, true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(fqn_glob_match(c.pattern, c.text), c.expected)
        << "'" << c.pattern << "' against '" << c.text.substr(0, 40) << "'";
  }
}

TEST(Glob, PathPatternsFollowGitignoreRules) {
  std::string deep;
  for (int i = 0; i < 60; ++i)
    deep += "a/";
  const GlobCase cases[] = {
      // A name alone: in any directory, a directory selecting all under it.
      {"*.pyc", "pkg/mod.pyc", true},
      {"vendor", "vendor/lib/x.py", true},
      {"vendor", "src/vendor/x.py", true},
      {"vendor", "src/vendored/x.py", false},
      // * and ? never cross "/".
      {"src/*.py", "src/a.py", true},
      {"src/*.py", "src/pkg/a.py", false},
      {"s?c/a.py", "s/c/a.py", false},
      {"*", "a/b.py", true},
      // Anchored at the root.
      {"src/gen", "src/gen/x.py", true},
      {"src/gen", "lib/src/gen/x.py", false},
      {"/gen", "lib/gen/x.py", false},
      {"./gen", "gen/x.py", true},
      {"src/*", "src/pkg/deep/x.py", true},
      // ** segments.
      {"**/test", "a/b/test/x.py", true},
      {"**/test", "a/b/tests/x.py", false},
      {"src/**/gen", "src/gen/x.py", true},
      {"src/**/gen", "src/a/b/gen/x.py", true},
      {"docs/**", "docs/a/b.md", true},
      {"**/*.py", "a/b/c.py", true},
      {"a**b/x", "ab/x", true},
      {"a**b/x", "a/b/x", false},
      // A trailing "/": directories only.
      {"build/", "build/out.py", true},
      {"build/", "build", false},
      {"src/build/", "src/build", false},
      {"test_[!ab].py", "pkg/test_a.py", false},
      {"", "a.py", false},
      // Exponential for a matcher that backtracks into every **.
      {"**/a/**/a/**/a/**/a/**/a/**/a/**/a/**/a/**/b", deep + "c", false},
      {"**/a/**/a/**/a/**/a/**/a/**/a/**/a/**/a/**/c", deep + "c", true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(path_glob_match(c.pattern, c.text), c.expected)
        << "'" << c.pattern << "' against '" << c.text.substr(0, 40) << "'";
  }
}

}  // namespace
}  // namespace quarry
