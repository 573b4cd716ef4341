// The in-memory walks against the statements they stand for, on generated indexes: impact
// levels looked up in the call graph read into memory against the caller statements, the
// file dependencies joined in memory against the one statement that joins them in SQL, and
// the dead-code listing decided in memory against its statements.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <set>
#include <string>

#include "storage/repository.h"
#include "test_index.h"

namespace quarry {
namespace {

// A hub called by 1,100 symbols (so that the next level spans two blocks of asked ids),
// and 6,000 edges drawn at random over 1,500 symbols in 40 files: test files, files of a
// language that is no source, repeated paths and start lines, every edge kind and
// resolution, call lines missing. Apart from them, "pkg.odd" is called by two symbols, one
// of which calls it twice, once on a line that holds text: only the caller statement reads
// that line. It calls one of its callers in turn.
void generate(testing::TestIndex& index, std::vector<std::int64_t>& symbols) {
  std::mt19937_64 random(11);
  const auto pick = [&random](std::size_t size) {
    return static_cast<std::size_t>(random() % size);
  };
  const std::int64_t core = index.component("core"), web = index.component("web");
  std::vector<std::int64_t> files;
  for (int i = 0; i < 40; ++i) {
    const std::string path = i % 9 == 4    ? "tests/test_m" + std::to_string(i) + ".py"
                             : i % 13 == 7 ? "docs/page" + std::to_string(i % 2) + ".md"
                                           : "pkg/m" + std::to_string(i % 37) + ".py";
    files.push_back(
        index.file(path, path.ends_with(".md") ? "markdown" : "python", i % 3 == 0 ? web : core));
  }
  for (int i = 0; i < 1500; ++i) {
    const auto file = files[pick(files.size())];
    symbols.push_back(index.symbol(file, "f" + std::to_string(i),
                                   i % 4 == 0 ? "method" : "function", "pkg.f" + std::to_string(i),
                                   static_cast<std::int64_t>(pick(30))));
  }
  const std::vector<std::optional<std::string>> resolutions = {"exact",     "import", "exact",
                                                               "ambiguous", "model",  std::nullopt};
  const std::vector<std::string> kinds = {"call", "call", "call", "reference", "import", "link"};
  const auto line = [&]() -> std::optional<std::int64_t> {
    return pick(4) == 0 ? std::nullopt : std::optional<std::int64_t>(pick(500));
  };
  for (std::size_t i = 1; i <= 1100; ++i)
    index.edge(symbols[i], symbols[0], "call", resolutions[pick(3)], line());
  for (int i = 0; i < 6000; ++i) {
    index.edge(symbols[pick(symbols.size())], symbols[pick(symbols.size())],
               kinds[pick(kinds.size())], resolutions[pick(resolutions.size())], line());
  }

  const std::int64_t odd = index.symbol(files[0], "odd", "function", "pkg.odd", 3);
  std::vector<std::int64_t> chain;
  for (int i = 0; i < 5; ++i)
    chain.push_back(index.symbol(files[static_cast<std::size_t>(i)], "g" + std::to_string(i),
                                 "function", "pkg.g" + std::to_string(i), 10 - i));
  index.edge(chain[0], odd, "call", "exact", 5);
  index.edge(chain[1], odd, "call", "import", std::nullopt);
  index.execute("INSERT INTO edges (source_id, target_id, kind, resolution, line) VALUES (" +
                std::to_string(chain[2]) + ", " + std::to_string(chain[0]) +
                ", 'call', 'exact', 'x')");
  // SQL's least call line of the two is 4: a number sorts before any text.
  index.edge(chain[2], chain[0], "call", "exact", 4);
  index.edge(chain[3], chain[1], "call", "exact", 8);
  index.edge(odd, chain[1], "call", "exact", 2);  // back to where the walk starts
  index.edge(chain[4], chain[2], "call", "local", 9);
}

TEST(GraphWalks, InMemoryLevelsAndFileJoinMatchTheStatements) {
  testing::TestIndex index;
  std::vector<std::int64_t> symbols;
  generate(index, symbols);
  index.close();
  Repository repo(index.path());

  constexpr std::size_t NEVER = std::numeric_limits<std::size_t>::max();
  std::size_t transitive = 0;
  for (const std::string fqn :
       {"pkg.f0", "pkg.f1", "pkg.f2", "pkg.f17", "pkg.f300", "pkg.f1499", "pkg.odd"}) {
    for (const std::int64_t depth : {1, 2, 3, 5}) {
      for (const bool include_tests : {false, true}) {
        const ImpactAnalysis by_statements =
            repo.analyze_impact_walk(fqn, depth, include_tests, NEVER);
        // In memory from the first level (1), from a later level after statements (3), or
        // only for the hub (300); the hub's second level spans two blocks of asked ids.
        for (const std::size_t threshold : {1, 3, 300}) {
          EXPECT_EQ(repo.analyze_impact_walk(fqn, depth, include_tests, threshold), by_statements)
              << fqn << " " << depth << " " << include_tests << " " << threshold;
        }
        EXPECT_EQ(repo.analyze_impact(fqn, depth, include_tests), by_statements) << fqn;
        transitive += by_statements.transitive_callers.size();
      }
    }
  }
  EXPECT_GT(transitive, 500U);  // the walks reach deep into the graph

  const FileDependencies scanned = repo.scan_file_dependencies();
  std::vector<std::pair<std::string, std::string>> joined;
  for (const auto& [source, target] : scanned.pairs)
    joined.emplace_back(scanned.paths[source], scanned.paths[target]);
  auto expected = repo.production_file_dependencies();
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(joined, expected);  // in ascending order, each once
  EXPECT_GT(expected.size(), 100U);

  DependencyGraph::Builder from_statement;
  for (const auto& [source, target] : repo.production_file_dependencies()) {
    from_statement.add_edge(source, target);
    from_statement.add_node(target);
  }
  const auto cycles = repo.find_circular_dependencies("file");
  EXPECT_EQ(cycles, condense_cycles(from_statement.build(), "file"));
  EXPECT_FALSE(cycles.empty());
}

// 1,200 symbols in 25 files (tests, documents, a file without language, repeated paths),
// with every rule and reason of the dead-code listing drawn at random: members of earlier
// symbols, mostly in their file, some fqns not ending in their name, names shared, with
// characters of several bytes, a stray continuation byte or a NUL, dunder, entry, runtime
// and dispatch names, base-naming and decorated signatures, exports, repeated start lines,
// edges of every kind and resolution (some to or from no symbol), pending references.
void generate_dead_code(testing::TestIndex& index) {
  using namespace std::string_literals;
  std::mt19937_64 random(7);
  const auto pick = [&random](std::size_t size) {
    return static_cast<std::size_t>(random() % size);
  };
  std::vector<std::int64_t> files;
  for (int i = 0; i < 24; ++i) {
    const std::string path = i % 7 == 3    ? "tests/test_m" + std::to_string(i) + ".py"
                             : i % 11 == 5 ? "docs/p.md"
                                           : "pkg/m" + std::to_string(i % 17) + ".py";
    files.push_back(index.file(path, path.ends_with(".md") ? "markdown" : "python"));
  }
  index.execute("INSERT INTO files (path, language) VALUES ('pkg/none.py', NULL)");
  files.push_back(files.back() + 1);
  const std::vector<std::string> names = {"run",
                                          "close",
                                          "get",
                                          "main",
                                          "__init__",
                                          "__x__",
                                          "___",
                                          "visit_a",
                                          "visit_b",
                                          "do_x",
                                          "do_y",
                                          "_handle_z",
                                          "näme",
                                          "a\xff"
                                          "b"s,
                                          "c\x80\x80"
                                          "d"s,
                                          "x\0y"s,
                                          "shared",
                                          "Run"};
  const std::vector<std::string> kinds = {"function", "function", "method", "method",
                                          "method",   "class",    "class",  "constant"};
  const std::vector<std::optional<std::string>> signatures = {std::nullopt,
                                                              "def f(x):",
                                                              "@app.route def f():",
                                                              "class C(Base):",
                                                              "class J Extends K",
                                                              "class T IMPLEMENTS I",
                                                              "plain",
                                                              "x\0(y)"s};
  std::vector<std::int64_t> symbols;
  std::vector<std::pair<std::string, std::int64_t>> defined;  // fqn and file
  for (std::size_t i = 0; i < 1200; ++i) {
    const std::string name =
        pick(2) == 0 ? names[pick(names.size())] : "f" + std::to_string(i % 400);
    auto [parent, file] = defined.empty() || pick(2) == 0
                              ? std::pair(std::string("pkg"), files[pick(files.size())])
                              : defined[pick(defined.size())];
    if (pick(5) == 0) file = files[pick(files.size())];
    const std::string fqn = pick(12) == 0 ? parent + ".ü" : parent + "." + name;
    defined.emplace_back(fqn, file);
    symbols.push_back(index.symbol(file, name, kinds[pick(kinds.size())], fqn,
                                   static_cast<std::int64_t>(pick(20)),
                                   signatures[pick(signatures.size())], pick(15) == 0));
  }
  const std::vector<std::optional<std::string>> resolutions = {"exact", "import",     "ambiguous",
                                                               "model", std::nullopt, ""};
  const std::vector<std::string> edge_kinds = {"call",       "reference", "inherits",
                                               "implements", "import",    "link"};
  const auto any = [&]() { return pick(60) == 0 ? 999999 : symbols[pick(symbols.size())]; };
  for (int i = 0; i < 2000; ++i)
    index.edge(any(), any(), edge_kinds[pick(edge_kinds.size())],
               resolutions[pick(resolutions.size())]);
  for (int i = 0; i < 15; ++i)
    index.pending(names[pick(names.size())]);
}

TEST(GraphWalks, DeadCodeInMemoryMatchesTheStatements) {
  testing::TestIndex index;
  generate_dead_code(index);
  index.close();
  Repository repo(index.path());

  const DeadCodePage all = repo.dead_code_by_statements({.limit = 1000000});
  ASSERT_EQ(repo.scan_dead_code({.limit = 1000000}), all);
  // The listing holds every reason, tests' uses and equal paths and lines.
  std::set<std::string> reasons;
  bool tested = false, tie = false;
  for (std::size_t i = 0; i < all.symbols.size(); ++i) {
    reasons.insert(all.symbols[i].reasons.begin(), all.symbols[i].reasons.end());
    tested = tested || all.symbols[i].used_by_tests;
    tie = tie || (i > 0 && all.symbols[i].file == all.symbols[i - 1].file &&
                  all.symbols[i].line == all.symbols[i - 1].line);
  }
  EXPECT_EQ(reasons.size(), 3U);
  EXPECT_TRUE(tested && tie);
  EXPECT_GT(all.total_count, 100);

  const std::int64_t max = std::numeric_limits<std::int64_t>::max();
  const std::vector<DeadCodeOptions> pages = {{},
                                              {.runtime_members = {"get", "close", "näme"}},
                                              {.limit = 0},
                                              {.limit = 7, .offset = all.total_count - 3},
                                              {.limit = 10, .offset = all.total_count},
                                              {.limit = 10, .offset = all.total_count + 5},
                                              {.limit = max, .offset = 1},
                                              {.limit = -1},
                                              {.limit = -3, .offset = -2}};
  for (const DeadCodeOptions& options : pages) {
    EXPECT_EQ(repo.scan_dead_code(options), repo.dead_code_by_statements(options))
        << options.limit << "@" << options.offset;
  }
  EXPECT_EQ(repo.scan_dead_code({.component = "core"}), std::nullopt);
}

// A start line that is no integer leaves the listing to the statements.
TEST(GraphWalks, DeadCodeOfABrokenSymbolsRowIsTheStatements) {
  testing::TestIndex index;
  const auto file = index.file("a.py");
  index.symbol(file, "f", "function", "a.f", 3);
  index.execute("INSERT INTO symbols (file_id, name, kind, fqn, start_line) VALUES (" +
                std::to_string(file) + ", 'g', 'function', 'a.g', 'x')");
  index.close();
  Repository repo(index.path());
  EXPECT_EQ(repo.scan_dead_code({}), std::nullopt);
  EXPECT_EQ(repo.get_dead_code().total_count, 2);
}

}  // namespace
}  // namespace quarry
