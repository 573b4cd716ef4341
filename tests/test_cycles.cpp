#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <stdexcept>

#include "storage/repository_quality.h"
#include "test_index.h"

namespace quarry {
namespace {

using Names = std::vector<std::string>;

// The words of `text`: "a b" gives a, b.
Names split(const std::string& text) {
  std::istringstream in(text);
  return Names(std::istream_iterator<std::string>(in), {});
}

// The graph "a>b b>c d": a>b adds an edge (a becomes a key, b a node), a lone name a key.
// Every graph comes from one builder, so each also shows that build() leaves it empty.
DependencyGraph graph(const std::string& edges) {
  static DependencyGraph::Builder builder;
  for (const std::string& token : split(edges)) {
    const auto arrow = token.find('>');
    arrow == std::string::npos ? builder.add_node(token)
                               : builder.add_edge(token.substr(0, arrow), token.substr(arrow + 1));
  }
  return builder.build();
}

Names names(const DependencyGraph& g, std::span<const DependencyGraph::Node> nodes) {
  Names out;
  for (const auto node : nodes)
    out.emplace_back(g.name(node));
  return out;
}

// The components of `g` in the order the search completes them: "c | b a".
std::string components(const DependencyGraph& g) {
  const StrongComponents found = detail::strongly_connected(g);
  std::string out;
  for (std::size_t i = 0; i < found.size(); ++i) {
    if (i > 0) out += " |";
    for (const auto node : found[i])
      out.append(" ").append(g.name(node));
  }
  return out.empty() ? out : out.substr(1);
}

CycleComponent entry(const std::string& nodes, const std::string& cycle,
                     std::string type = "file") {
  return {{split(nodes), std::move(type)}, split(cycle)};
}

TEST(DependencyGraph, KeepsInsertionOrderAndEachSuccessorOnce) {
  const DependencyGraph g = graph("b>c b>a b>c a b a>a b>d");
  EXPECT_EQ(names(g, g.keys()), (Names{"b", "a"}));
  EXPECT_EQ(names(g, g.successors(*g.find("b"))), (Names{"c", "a", "d"}));
  EXPECT_EQ(names(g, g.successors(*g.find("a"))), (Names{"a"}));
  EXPECT_FALSE(g.is_key(*g.find("c")));  // only ever a successor
  EXPECT_TRUE(g.successors(*g.find("c")).empty());
  EXPECT_EQ(g.node_count(), 4u);
  EXPECT_EQ(g.edge_count(), 4u);
  EXPECT_FALSE(g.find("e"));
}

TEST(StronglyConnected, CompletionAndStackOrders) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""},
      {"b a c", "b | a | c"},                      // no edges: key order
      {"a>b b>a b>c c", "c | b a"},                // the worked example
      {"a>z", "z | a"},                            // a successor that is no key
      {"a>a a>b b", "b | a"},                      // a self-loop stays single
      {"a>b b>c b>d c>a d>e e>d", "e d | c b a"},  // low-link through a finished child
      {"c a>b a>c b>a", "c | b a"},                // reached roots are skipped
      {"a>c a>b b>a c>a", "b c a"},                // successor order decides member order
  };
  for (const auto& [edges, expected] : cases)
    EXPECT_EQ(components(graph(edges)), expected) << edges;
}

TEST(StronglyConnected, MillionNodeChainNeedsNoRecursion) {
  constexpr int COUNT = 1'000'000;
  DependencyGraph::Builder builder;
  for (int i = 0; i + 1 < COUNT; ++i) {
    builder.add_edge("n" + std::to_string(i), "n" + std::to_string(i + 1));
    builder.add_node("n" + std::to_string(i + 1));  // so that batches of names split edges
  }
  const DependencyGraph g = builder.build();
  EXPECT_EQ(g.edge_count(), static_cast<std::size_t>(COUNT - 1));
  const StrongComponents chain = detail::strongly_connected(g);
  ASSERT_EQ(chain.size(), static_cast<std::size_t>(COUNT));
  EXPECT_EQ(g.name(chain[0][0]), "n999999");  // the last node completes first
  EXPECT_EQ(g.name(chain[COUNT - 1][0]), "n0");
}

TEST(CondenseCycles, OneSortedEntryPerComponentWithAShortestCycle) {
  const std::vector<std::pair<std::string, std::vector<CycleComponent>>> cases = {
      {"", {}},
      {"a>a b>b b>a", {}},  // self-loops only
      {"x>w w>x", {entry("w x", "w x w")}},
      {"w>x x>w", {entry("w x", "w x w")}},
      {"a>b a>c b>c c>a", {entry("a b c", "a c a")}},  // a shorter cycle wins
      {"a>c a>b c>a b>a", {entry("a b c", "a b a")}},  // equal lengths: smallest successor first
      // By size, then first member; edges in and out change nothing.
      {"m>n n>o o>m o>b b>c c>d d>b d>p z>y z>m y>x x>q q>z",
       {entry("q x y z", "q z y x q"), entry("b c d", "b c d b"), entry("m n o", "m n o m")}},
      // The search never leaves the component.
      {"a>b a>e e>a b>c c>d d>b", {entry("b c d", "b c d b"), entry("a e", "a e a")}},
  };
  for (const auto& [edges, expected] : cases)
    EXPECT_EQ(condense_cycles(graph(edges), "file"), expected) << edges;
}

TEST(ShortestCycle, UsesTheGivenStartAndFailsOffACycle) {
  const DependencyGraph g{{"a", {"b", "a"}}, {"b", {"c"}}, {"c", {"b"}}};
  EXPECT_EQ(detail::shortest_cycle(g, {"a"}), (Names{"a", "a"}));
  EXPECT_EQ(detail::shortest_cycle(g, {"c", "b"}), (Names{"c", "b", "c"}));
  try {
    detail::shortest_cycle(graph("a>b"), {"a", "b"});
    FAIL() << "no cycle expected";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "a is on no cycle of ['a', 'b']");
  }
  // b reaches a only through c, which is not a member; zz is no node; no member at all.
  for (const Names& members : {Names{"b", "a"}, Names{"zz"}, Names{}})
    EXPECT_THROW(detail::shortest_cycle(g, members), std::invalid_argument);
}

TEST(CircularDependencies, FileLevelCountsProvenCodeEdgesBetweenProductionFiles) {
  // Files a, b, c with a -> b -> c -> a and b -> a: one cycle, whose shortest is a, b, a.
  testing::TestIndex index;
  const auto file_a = index.file("a");
  const auto a = index.symbol(file_a, "fa"), a2 = index.symbol(file_a, "fa2");
  const auto b = index.symbol(index.file("b"), "fb"), c = index.symbol(index.file("c"), "fc");
  // a -> a2 -> a lies within one file.
  for (const auto& [source, target] : {std::pair{a, b}, {b, c}, {c, a}, {a, a2}, {a2, a}})
    index.edge(source, target);
  index.edge(b, a, "reference");
  index.edge(a, b, "type");  // the same pair of files again
  // Files xN and their partner, with a proven call xN -> partner and a way back: only the
  // proven import closes a cycle.
  const std::vector<std::tuple<std::string, std::optional<std::string>, std::string>> back = {
      {"import", "local", "y0.py"}, {"call", "ambiguous", "y1.py"},
      {"call", "model", "y2.py"},   {"call", std::nullopt, "y3.py"},
      {"link", "exact", "y4.py"},   {"call", "exact", "tests/t.py"}};
  for (std::size_t i = 0; i < back.size(); ++i) {
    const auto& [kind, resolution, partner] = back[i];
    const auto x = index.symbol(index.file("x" + std::to_string(i) + ".py"), "x");
    const auto y = index.symbol(index.file(partner), "y");
    index.edge(x, y);
    index.edge(y, x, kind, resolution);
  }
  auto repo = index.open();
  const std::vector expected{entry("a b c", "a b a"), entry("x0.py y0.py", "x0.py y0.py x0.py")};
  EXPECT_EQ(repo->find_circular_dependencies("file"), expected);
  EXPECT_EQ(repo->find_circular_dependencies("files"), expected);
  EXPECT_TRUE(repo->find_circular_dependencies().empty());  // no components in this index
  const DependencyGraph g = repo->dependency_graph("file");
  EXPECT_EQ(names(g, g.successors(*g.find("a"))), Names{"b"});  // no file depends on itself
  EXPECT_FALSE(g.find("tests/t.py"));  // whichever end of an edge a test file is
}

// A host whose component dependencies are given by the test.
struct ComponentHost : Repository {
  using Repository::Repository;
  std::vector<ComponentDependency> get_component_dependencies(bool exclude_test_files) override {
    asked.push_back(exclude_test_files);
    return {{"web", "core"},  {"core", "web"},  {"web", "core"},
            {"core", "util"}, {"util", "util"}, {"db", "util"}};
  }
  std::vector<bool> asked;
};

TEST(CircularDependencies, ComponentLevelTakesTheHostsDependencies) {
  testing::TestIndex index;
  index.close();
  ComponentHost host(index.path());
  EXPECT_EQ(host.find_circular_dependencies(),
            std::vector{entry("core web", "core web core", "component")});
  EXPECT_EQ(host.asked, std::vector<bool>{true});
}

}  // namespace
}  // namespace quarry
