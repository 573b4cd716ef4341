#include <gtest/gtest.h>

#include "storage/repository_quality.h"
#include "test_index.h"

namespace quarry {
namespace {

// a.py holds the asked symbols T and U and most callers; b.py one more; doc.md is not code.
class CallersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto a = index.file("a.py");
    const auto b = index.file("b.py");
    const auto doc = index.file("doc.md", "markdown");
    t = index.symbol(a, "t", "function", "m.t", 50);
    u = index.symbol(a, "u", "function", "m.u", 60);
    c1 = index.symbol(b, "c1", "function", "n.c1", 5);
    c2 = index.symbol(a, "c2", "method", "m.K.c2", 9);
    c3 = index.symbol(a, "c3", "function", "m.c3", 1);
    c4 = index.symbol(doc, "c4", "section", "doc.c4", 1);
    c5 = index.symbol(a, "c5", "function", "m.c5", 7);
    c6 = index.symbol(a, "c6", "function", "m.c6", 7);
    index.edge(c1, t, "call", "exact", 30);  // three call sites: one record
    index.edge(c1, t, "call", "import", 20);
    index.edge(c1, t, "call", "local", std::nullopt);
    index.edge(c1, u, "call", "exact", 8);
    index.edge(c1, t, "reference", "exact", 1);  // not a call
    index.edge(c2, t, "call", "ambiguous", 3);
    index.edge(c3, t, "call", std::nullopt, 4);  // neither proven nor guessed
    index.edge(c4, t, "call", "exact", 2);       // not in a source language
    index.edge(c5, t, "call", "exact", std::nullopt);
    index.edge(t, t, "call", "exact", 52);  // recursion
    index.edge(c6, t, "call", "model", 11);
    repo = index.open();
  }

  Caller proven(std::int64_t caller, std::int64_t total, std::optional<std::int64_t> line,
                std::string resolution = "exact") const {
    const auto symbol = repo->get_symbol_by_id(caller);
    const std::string path = caller == c1 ? "b.py" : "a.py";
    return Caller{t,           caller, symbol->name,       symbol->kind,
                  symbol->fqn, path,   symbol->start_line, resolution,
                  total,       line};
  }

  testing::TestIndex index;
  std::unique_ptr<Repository> repo;
  std::int64_t t, u, c1, c2, c3, c4, c5, c6;
};

TEST_F(CallersTest, KindsLimitsOrderAndGrouping) {
  const Caller p5 = proven(c5, 3, std::nullopt), pt = proven(t, 3, 52), p1 = proven(c1, 3, 20),
               g6 = proven(c6, 2, 11, "model"), g2 = proven(c2, 2, 3, "ambiguous");
  struct Case {
    const char* name;
    CallersOptions options;
    std::vector<Caller> expected;
  };
  const std::vector<Case> cases = {
      {"proven, by path, line, id", {}, {p5, pt, p1}},
      {"guessed", {.guessed = true}, {g6, g2}},
      {"limit 0 returns nothing", {.limit = 0}, {}},
      {"limit 1 keeps the total", {.limit = 1}, {p5}},
      {"limit 2 of guessed", {.guessed = true, .limit = 2}, {g6, g2}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(repo->callers_of({t}, c.options), c.expected) << c.name;
  }
}

TEST_F(CallersTest, RepeatedAndUnknownIdsAndTwoAskedSymbols) {
  Caller of_u{u, c1, "c1", "function", "n.c1", "b.py", 5, "exact", 1, 8};
  const auto once = repo->callers_of({u, t});
  ASSERT_EQ(once.size(), 4u);
  EXPECT_EQ(once.front().of, t);  // ordered by asked id within a block
  EXPECT_EQ(once.back(), of_u);
  EXPECT_EQ(repo->callers_of({u, 9999, t, u, t, 9999}), once);
  EXPECT_TRUE(repo->callers_of({}).empty());
}

TEST(Callers, AskedIdsGoInBlocksOf900) {
  testing::TestIndex index;
  const auto f = index.file("a.py");
  const auto caller = index.symbol(f, "caller");
  std::vector<std::int64_t> targets;
  for (int i = 0; i < 901; ++i) {
    targets.push_back(index.symbol(f, "t" + std::to_string(i)));
    index.edge(caller, targets.back(), "call", "exact", i);
  }
  auto repo = index.open();
  // The smallest id asked last falls into the second block, and its record comes last.
  std::vector<std::int64_t> asked(targets.begin() + 1, targets.end());
  asked.push_back(targets.front());

  struct Case {
    std::vector<std::int64_t> ids;
    std::uint64_t statements;
    std::size_t records;
  };
  const std::vector<Case> cases = {
      {std::vector<std::int64_t>(asked.begin(), asked.begin() + 900), 1, 900},
      {[&] {  // 900 distinct ids, repeated
         auto ids = std::vector<std::int64_t>(asked.begin(), asked.begin() + 900);
         ids.insert(ids.end(), asked.begin(), asked.begin() + 50);
         return ids;
       }(),
       1, 900},
      {asked, 2, 901},
  };
  for (const auto& [ids, statements, records] : cases) {
    const auto before = repo->db().statements_run();
    const auto callers = repo->callers_of(ids);
    EXPECT_EQ(repo->db().statements_run() - before, statements);
    EXPECT_EQ(callers.size(), records);
  }
  const auto callers = repo->callers_of(asked);
  ASSERT_EQ(callers.size(), 901u);
  EXPECT_EQ(callers.back().of, targets.front());
  EXPECT_EQ(callers.front().of, targets[1]);
}

TEST(Callers, SharedFragments) {
  EXPECT_EQ(detail::GUESSED_SQL, "e.resolution IN ('ambiguous', 'model')");
  EXPECT_EQ(detail::HIERARCHY_SQL, "('inherits', 'implements')");
  EXPECT_EQ(fill_placeholder(fill_placeholder(detail::PRODUCTION_USE, "target", "s.id"),
                             "production", "P"),
            "SELECT 1 FROM edges e JOIN symbols u ON u.id = e.source_id JOIN files uf ON uf.id = "
            "u.file_id WHERE e.target_id = s.id AND P");
}

}  // namespace
}  // namespace quarry
