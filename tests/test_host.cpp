#include <gtest/gtest.h>

#include "test_index.h"

namespace quarry {
namespace {

// Exposes the repository's internal host operations to the tests.
struct OpenRepository : Repository {
  using Repository::get_components_for_files;
  using Repository::is_test_file;
  using Repository::Repository;
};

TEST(Host, StatsAndSymbolLookup) {
  testing::TestIndex index;
  const auto f = index.file("a.py");
  index.symbol(f, "x", "function", "m.x", 3);
  const auto first = index.symbol(f, "x", "function", "m.dup", 4);
  index.symbol(f, "y", "function", "m.dup", 5);
  index.edge(first, first);
  index.pending("gone");
  auto repo = index.open();

  EXPECT_EQ(repo->get_stats(), (std::map<std::string, std::int64_t>{{"components", 0},
                                                                    {"edges", 1},
                                                                    {"files", 1},
                                                                    {"pending_references", 1},
                                                                    {"symbols", 3}}));
  EXPECT_EQ(repo->get_symbol_by_fqn("m.dup")->id, first);
  EXPECT_EQ(repo->get_symbol_by_fqn("m.dup")->start_line, 4);
  EXPECT_FALSE(repo->get_symbol_by_fqn("m"));
  EXPECT_FALSE(repo->get_symbol_by_fqn("M.X"));
}

TEST(Host, ComponentsOfAnyNumberOfFiles) {
  testing::TestIndex index;
  const auto core = index.component("core");
  const auto web = index.component("web");
  std::vector<std::string> paths;
  for (int i = 0; i < 1000; ++i) {
    paths.push_back("core/f" + std::to_string(i) + ".py");
    index.file(paths.back(), "python", core);
  }
  index.file("web/app.py", "python", web);
  index.file("loose.py");
  index.close();
  auto repo = OpenRepository(index.path());

  paths.insert(paths.end(), {"web/app.py", "loose.py", "missing.py", "web/app.py"});
  EXPECT_EQ(repo.get_components_for_files(paths), (std::vector<std::string>{"core", "web"}));
  EXPECT_EQ(repo.get_components_for_files({"web/app.py"}), std::vector<std::string>{"web"});
  EXPECT_TRUE(repo.get_components_for_files({"loose.py"}).empty());
  EXPECT_TRUE(repo.get_components_for_files({}).empty());
}

TEST(Host, ComponentDependenciesCountProvenCodeEdgesBetweenComponents) {
  testing::TestIndex index;
  const auto a = index.component("a"), b = index.component("b"), c = index.component("c");
  const auto fa = index.symbol(index.file("a/x.py", "python", a), "fa");
  const auto fa2 = index.symbol(index.file("a/y.py", "python", a), "fa2");
  const auto fb = index.symbol(index.file("b/x.py", "python", b), "fb");
  const auto fc = index.symbol(index.file("c/x.py", "python", c), "fc");
  const auto tc = index.symbol(index.file("c/tests/t.py", "python", c), "tc");
  index.edge(fa, fb, "call", "exact");       // a -> b
  index.edge(fa, fb, "import", "import");    // the same pair again
  index.edge(fa, fa2, "call", "exact");      // within a
  index.edge(fb, fa, "call", "ambiguous");   // a guess
  index.edge(fb, fa, "call", "model");       // a guess
  index.edge(fb, fa, "call", std::nullopt);  // no resolution
  index.edge(fb, fc, "link", "exact");       // not code
  index.edge(tc, fa, "call", "exact");       // from a test file
  index.edge(fc, fb, "type", "local");       // c -> b
  auto repo = index.open();

  EXPECT_EQ(repo->get_component_dependencies(true),
            (std::vector<ComponentDependency>{{"a", "b"}, {"c", "b"}}));
  EXPECT_EQ(repo->get_component_dependencies(false),
            (std::vector<ComponentDependency>{{"a", "b"}, {"c", "a"}, {"c", "b"}}));
}

}  // namespace
}  // namespace quarry
