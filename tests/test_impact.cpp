#include <gtest/gtest.h>

#include <cmath>

#include "storage/repository.h"
#include "test_index.h"
#include "utils/rounding.h"

namespace quarry {
namespace {

// A repository whose file count and symbol lookup a test can replace, counting how often
// the file count is read.
struct StubbedRepository : Repository {
  using Repository::calculate_impact_score;
  using Repository::Repository;

  std::optional<std::int64_t> file_count() override {
    ++stats_reads;
    return files ? *files : Repository::file_count();
  }
  std::optional<Symbol> get_symbol_by_fqn(const std::string& fqn) override {
    return symbol ? *symbol : Repository::get_symbol_by_fqn(fqn);
  }

  std::optional<std::optional<std::int64_t>> files;
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
  // Affected files and components, the index's file count (-1: unknown), the score.
  const std::vector<std::tuple<std::int64_t, std::int64_t, std::int64_t, double>> cases = {
      {0, 50, 10, 0.0},  {1, 0, 1, 0.72},    {3, 2, 100, 0.204}, {1, 0, 1000, 0.121},
      {5, 0, 16, 0.307}, {2, 105, 10, 0.52}, {2, 106, 10, 0.52}, {50, 200, 50, 1.0},
      {1, 0, 0, 0.72},   {4, 0, 2, 0.72},    {1, 0, -1, 0.72}};
  for (const auto& [files, components, index_files, expected] : cases) {
    repo.files = index_files >= 0 ? std::optional(index_files) : std::nullopt;
    repo.stats_reads = 0;
    EXPECT_EQ(repo.calculate_impact_score(files, components), expected) << files;
    EXPECT_EQ(repo.stats_reads, files == 0 ? 0 : 1) << files;
  }
}

// b and c call a; d calls both (the diamond); e calls d and a calls e (a cycle back to a);
// a calls itself. The test caller t calls a and b, and only t is called by u. g calls a by
// a guess.
TEST(AnalyzeImpact, WalksProvenCallersBreadthFirst) {
  testing::TestIndex index;
  const auto core = index.component("core"), web = index.component("web");
  const auto fa = index.file("a.py", "python", core), fb = index.file("b.py", "python", core);
  const auto fc = index.file("c.py", "python", web), fd = index.file("d.py");
  const auto a = index.symbol(fa, "a", "function", "m.a", 1);
  const auto c = index.symbol(fc, "c", "function", "m.c", 5);  // smaller id than b
  const auto b = index.symbol(fb, "b", "method", "m.K.b", 3);
  const auto d = index.symbol(fd, "d", "function", "m.d", 7);
  const auto e = index.symbol(fa, "e", "function", "m.e", 20);
  const auto t =
      index.symbol(index.file("tests/test_a.py"), "test_a", "function", "tests.test_a", 2);
  const auto u = index.symbol(index.file("u.py"), "u", "function", "m.u", 4);
  const auto g = index.symbol(fa, "g", "function", "m.g", 30);
  for (const auto& [from, to, at] : {std::tuple{b, a, 10}, {d, b, 30}, {d, c, 40}, {e, d, 21}})
    index.edge(from, to, "call", "exact", at);
  for (const auto& [from, to, at] :
       {std::tuple{a, a, 2}, {a, e, 3}, {t, a, 6}, {t, b, 7}, {u, t, 8}})
    index.edge(from, to, "call", "exact", at);
  index.edge(c, a, "call", "import", std::nullopt);
  index.edge(g, a, "call", "ambiguous", 31);
  index.close();
  StubbedRepository repo(index.path());

  const CallerInfo ib{b, "b", "method", "m.K.b", 3, 10, "b.py", 1};
  const CallerInfo ic{c, "c", "function", "m.c", 5, std::nullopt, "c.py", 1};
  const CallerInfo it{t, "test_a", "function", "tests.test_a", 2, 6, "tests/test_a.py", 1};
  // d is found through c, the callee of smaller id, with the line of that call.
  const CallerInfo id{d, "d", "function", "m.d", 7, 40, "d.py", 2};
  const CallerInfo iu{u, "u", "function", "m.u", 4, 8, "u.py", 2};
  const CallerInfo ie{e, "e", "function", "m.e", 20, 21, "a.py", 3};
  const std::vector<std::string> production{"a.py", "b.py", "c.py", "d.py"};
  const std::vector<std::string> all{"a.py", "b.py", "c.py", "d.py", "tests/test_a.py", "u.py"};
  const std::vector<std::string> core_web{"core", "web"};
  // The depth and include_tests asked, the analysis, and the caller statements it runs.
  const std::vector<std::tuple<std::int64_t, bool, ImpactAnalysis, std::uint64_t>> cases = {
      {0, false, {"m.a", {ib, ic}, {}, {"b.py", "c.py"}, core_web, {}, 0.386, 1}, 1},
      // Level 4 finds only a again, so level 5 is never looked up.
      {9, false, {"m.a", {ib, ic}, {id, ie}, production, core_web, {}, 0.586, 5}, 4},
      {3, true, {"m.a", {ib, ic, it}, {id, iu, ie}, all, core_web, {it.file}, 0.786, 3}, 3},
  };
  for (const auto& [depth, include_tests, expected, lookups] : cases) {
    const auto before = repo.db().statements_run();
    EXPECT_EQ(repo.analyze_impact("m.a", depth, include_tests), expected) << depth;
    // One symbol lookup, for a walk deeper than one level the count of calls into it, the
    // caller levels, the components and the statistics.
    EXPECT_EQ(repo.db().statements_run() - before, 1 + (depth > 1 ? 1 : 0) + lookups + 2) << depth;
  }

  // Unknown symbols, symbols without callers and symbols without an id read no statistics.
  repo.stats_reads = 0;
  EXPECT_EQ(repo.analyze_impact("m.nothing", -3), (ImpactAnalysis{.fqn = "m.nothing", .depth = 1}));
  EXPECT_EQ(repo.analyze_impact("m.u"), (ImpactAnalysis{.fqn = "m.u", .depth = 3}));
  repo.symbol = Symbol{.name = "a", .fqn = "m.a"};
  const auto before = repo.db().statements_run();
  EXPECT_EQ(repo.analyze_impact("m.a", 9, true), (ImpactAnalysis{.fqn = "m.a", .depth = 5}));
  EXPECT_EQ(repo.db().statements_run(), before);  // nothing is asked
  EXPECT_EQ(repo.stats_reads, 0);
}

}  // namespace
}  // namespace quarry
