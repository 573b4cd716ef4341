#include <gtest/gtest.h>

#include <cmath>

#include "storage/repository.h"
#include "test_index.h"
#include "utils/rounding.h"

namespace quarry {
namespace {

// A repository whose statistics and symbol lookup a test can replace, counting how often
// the statistics are read.
struct StubbedRepository : Repository {
  using Repository::calculate_impact_score;
  using Repository::Repository;

  std::map<std::string, std::int64_t> get_stats() override {
    ++stats_reads;
    return stats ? *stats : Repository::get_stats();
  }
  std::optional<Symbol> get_symbol_by_fqn(const std::string& fqn) override {
    return symbol ? *symbol : Repository::get_symbol_by_fqn(fqn);
  }

  std::optional<std::map<std::string, std::int64_t>> stats;
  std::optional<std::optional<Symbol>> symbol;
  int stats_reads = 0;
};

TEST(ImpactScore, RoundingFormulaAndStatistics) {
  // The exact halves go to the even digit; a double just below a half goes down.
  const std::vector<std::pair<double, double>> halves = {
      {0.0625, 0.062}, {0.1875, 0.188}, {0.3125, 0.312},
      {0.4375, 0.438}, {0.5625, 0.562}, {0.6875, 0.688},
      {0.8125, 0.812}, {0.9375, 0.938}, {std::nextafter(0.3075, 0.0), 0.307}};
  for (const auto& [value, expected] : halves)
    EXPECT_EQ(round_decimal(value, 3), expected) << value;

  testing::TestIndex index;
  index.close();
  StubbedRepository repo(index.path());
  struct Case {
    std::int64_t files, components;
    std::optional<std::int64_t> index_files;  // absent: no "files" statistic
    double expected;
  };
  const std::vector<Case> cases = {
      {0, 50, 10, 0.0},  {1, 0, 1, 0.72},    {3, 2, 100, 0.204},        {1, 0, 1000, 0.121},
      {5, 0, 16, 0.307}, {2, 105, 10, 0.52}, {2, 106, 10, 0.52},        {50, 200, 50, 1.0},
      {1, 0, 0, 0.72},   {4, 0, 2, 0.72},    {1, 0, std::nullopt, 0.72}};
  for (const auto& c : cases) {
    repo.stats = std::map<std::string, std::int64_t>{{"symbols", 7}};
    if (c.index_files) (*repo.stats)["files"] = *c.index_files;
    repo.stats_reads = 0;
    EXPECT_EQ(repo.calculate_impact_score(c.files, c.components), c.expected) << c.files;
    EXPECT_EQ(repo.stats_reads, c.files == 0 ? 0 : 1) << c.files;
  }
}

// b and c call a; d calls both (the diamond); e calls d and a calls e (a cycle back to a);
// a calls itself. The test caller t calls a and b, and only t is called by u. g calls a by
// a guess.
class ImpactTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto core = index.component("core"), web = index.component("web");
    const auto fa = index.file("a.py", "python", core), fb = index.file("b.py", "python", core);
    const auto fc = index.file("c.py", "python", web), fd = index.file("d.py");
    const auto ft = index.file("tests/test_a.py"), fu = index.file("u.py");
    a = index.symbol(fa, "a", "function", "m.a", 1);
    c = index.symbol(fc, "c", "function", "m.c", 5);  // smaller id than b
    b = index.symbol(fb, "b", "method", "m.K.b", 3);
    d = index.symbol(fd, "d", "function", "m.d", 7);
    e = index.symbol(fa, "e", "function", "m.e", 20);
    t = index.symbol(ft, "test_a", "function", "tests.test_a", 2);
    u = index.symbol(fu, "u", "function", "m.u", 4);
    const auto g = index.symbol(fa, "g", "function", "m.g", 30);
    index.edge(b, a, "call", "exact", 10);
    index.edge(c, a, "call", "import", std::nullopt);
    index.edge(d, b, "call", "exact", 30);
    index.edge(d, c, "call", "exact", 40);
    index.edge(a, a, "call", "exact", 2);
    index.edge(e, d, "call", "exact", 21);
    index.edge(a, e, "call", "exact", 3);
    index.edge(t, a, "call", "exact", 6);
    index.edge(t, b, "call", "exact", 7);
    index.edge(u, t, "call", "exact", 8);
    index.edge(g, a, "call", "ambiguous", 31);
    index.close();
    repo = std::make_unique<StubbedRepository>(index.path());
  }

  testing::TestIndex index;
  std::unique_ptr<StubbedRepository> repo;
  std::int64_t a, b, c, d, e, t, u;
};

TEST_F(ImpactTest, WalksProvenCallersBreadthFirst) {
  const CallerInfo ib{b, "b", "method", "m.K.b", 3, 10, "b.py", 1};
  const CallerInfo ic{c, "c", "function", "m.c", 5, std::nullopt, "c.py", 1};
  const CallerInfo it{t, "test_a", "function", "tests.test_a", 2, 6, "tests/test_a.py", 1};
  // d is found through c, the callee of smaller id, with the line of that call.
  const CallerInfo id{d, "d", "function", "m.d", 7, 40, "d.py", 2};
  const CallerInfo iu{u, "u", "function", "m.u", 4, 8, "u.py", 2};
  const CallerInfo ie{e, "e", "function", "m.e", 20, 21, "a.py", 3};
  const std::vector<std::string> production{"a.py", "b.py", "c.py", "d.py"};
  struct Case {
    std::int64_t depth;
    bool include_tests;
    ImpactAnalysis expected;
    std::uint64_t lookups;  // caller statements
  };
  const std::vector<Case> cases = {
      {0, false, {"m.a", {ib, ic}, {}, {"b.py", "c.py"}, {"core", "web"}, {}, 0.386, 1}, 1},
      // Level 4 finds only a again, so level 5 is never looked up.
      {9, false, {"m.a", {ib, ic}, {id, ie}, production, {"core", "web"}, {}, 0.586, 5}, 4},
      {3,
       true,
       {"m.a",
        {ib, ic, it},
        {id, iu, ie},
        {"a.py", "b.py", "c.py", "d.py", "tests/test_a.py", "u.py"},
        {"core", "web"},
        {"tests/test_a.py"},
        0.786,
        3},
       3},
  };
  for (const auto& c : cases) {
    const auto before = repo->db().statements_run();
    EXPECT_EQ(repo->analyze_impact("m.a", c.depth, c.include_tests), c.expected) << c.depth;
    // One symbol lookup, the caller levels, the components and the statistics.
    EXPECT_EQ(repo->db().statements_run() - before, 1 + c.lookups + 2) << c.depth;
  }
}

TEST_F(ImpactTest, UnknownSymbolsAndSymbolsWithoutCallers) {
  EXPECT_EQ(repo->analyze_impact("m.nothing", -3),
            (ImpactAnalysis{.fqn = "m.nothing", .depth = 1}));
  EXPECT_EQ(repo->analyze_impact("m.u"), (ImpactAnalysis{.fqn = "m.u", .depth = 3}));
  EXPECT_EQ(repo->stats_reads, 0);

  // A symbol without an id counts as not found: nothing else is asked.
  repo->symbol = Symbol{.name = "a", .fqn = "m.a"};
  const auto before = repo->db().statements_run();
  EXPECT_EQ(repo->analyze_impact("m.a", 9, true), (ImpactAnalysis{.fqn = "m.a", .depth = 5}));
  EXPECT_EQ(repo->db().statements_run(), before);
  EXPECT_EQ(repo->stats_reads, 0);
}

}  // namespace
}  // namespace quarry
