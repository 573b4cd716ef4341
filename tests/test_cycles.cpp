#include <gtest/gtest.h>

#include <stdexcept>

#include "storage/repository_quality.h"
#include "test_index.h"

namespace quarry {
namespace {

using Names = std::vector<std::string>;

Names names(const DependencyGraph& graph, std::span<const DependencyGraph::Node> nodes) {
  Names out;
  for (const auto node : nodes)
    out.emplace_back(graph.name(node));
  return out;
}

std::vector<Names> components(const DependencyGraph& graph) {
  const StrongComponents found = detail::strongly_connected(graph);
  std::vector<Names> out;
  for (std::size_t i = 0; i < found.size(); ++i)
    out.push_back(names(graph, found[i]));
  return out;
}

TEST(DependencyGraph, KeepsInsertionOrderAndEachSuccessorOnce) {
  DependencyGraph::Builder builder;
  builder.add_edge("b", "c");
  builder.add_edge("b", "a");
  builder.add_edge("b", "c");
  builder.add_node("a");
  builder.add_node("b");
  builder.add_edge("a", "a");
  builder.add_edge("b", "d");
  const DependencyGraph graph = builder.build();
  EXPECT_EQ(names(graph, graph.keys()), (Names{"b", "a"}));
  EXPECT_EQ(names(graph, graph.successors(*graph.find("b"))), (Names{"c", "a", "d"}));
  EXPECT_EQ(names(graph, graph.successors(*graph.find("a"))), (Names{"a"}));
  EXPECT_FALSE(graph.is_key(*graph.find("c")));  // only ever a successor
  EXPECT_TRUE(graph.successors(*graph.find("c")).empty());
  EXPECT_EQ(graph.node_count(), 4u);
  EXPECT_EQ(graph.edge_count(), 4u);
  EXPECT_FALSE(graph.find("e"));
  EXPECT_EQ(builder.build().node_count(), 0u);  // the builder starts afresh
}

TEST(DependencyGraph, ManyNamesInterleavedWithKeys) {
  // Enough names that interning runs in several batches, with edges split across them.
  constexpr int COUNT = 5000;
  const auto name = [](int i) { return "pkg/mod_" + std::to_string(i % COUNT) + ".py"; };
  DependencyGraph::Builder builder;
  for (int i = 0; i < COUNT; ++i) {
    builder.add_edge(name(i), name(i + 1));
    builder.add_node(name(i + 1));
    builder.add_edge(name(i), name(i + 7));
    builder.add_edge(name(i), name(i + 1));
  }
  const DependencyGraph graph = builder.build();
  ASSERT_EQ(graph.node_count(), static_cast<std::size_t>(COUNT));
  EXPECT_EQ(graph.edge_count(), 2u * COUNT);
  for (int i = 0; i < COUNT; ++i) {
    const auto node = graph.find(name(i));
    ASSERT_TRUE(node);
    EXPECT_EQ(graph.name(graph.keys()[i]), name(i));
    EXPECT_EQ(names(graph, graph.successors(*node)), (Names{name(i + 1), name(i + 7)}));
  }
}

TEST(StronglyConnected, CompletionAndStackOrders) {
  struct Case {
    const char* name;
    DependencyGraph graph;
    std::vector<Names> expected;
  };
  const std::vector<Case> cases = {
      {"empty", {}, {}},
      {"no edges: key order", {{"b", {}}, {"a", {}}, {"c", {}}}, {{"b"}, {"a"}, {"c"}}},
      {"worked example", {{"a", {"b"}}, {"b", {"a", "c"}}, {"c", {}}}, {{"c"}, {"b", "a"}}},
      {"successor that is no key", {{"a", {"z"}}}, {{"z"}, {"a"}}},
      {"self-loop stays single", {{"a", {"a", "b"}}, {"b", {}}}, {{"b"}, {"a"}}},
      {"one cycle through all", {{"a", {"b"}}, {"b", {"c"}}, {"c", {"a"}}}, {{"c", "b", "a"}}},
      {"nested components, lowlink through a finished child",
       {{"a", {"b"}}, {"b", {"c", "d"}}, {"c", {"a"}}, {"d", {"e"}}, {"e", {"d"}}},
       {{"e", "d"}, {"c", "b", "a"}}},
      {"reached roots are skipped",
       {{"c", {}}, {"a", {"b", "c"}}, {"b", {"a"}}},
       {{"c"}, {"b", "a"}}},
      {"successor order decides the member order",
       {{"a", {"c", "b"}}, {"b", {"a"}}, {"c", {"a"}}},
       {{"b", "c", "a"}}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(components(c.graph), c.expected) << c.name;
  }
}

TEST(StronglyConnected, MillionNodeChainAndRingNeedNoRecursion) {
  constexpr int COUNT = 1'000'000;
  DependencyGraph::Builder builder;
  for (int i = 0; i + 1 < COUNT; ++i)
    builder.add_edge("n" + std::to_string(i), "n" + std::to_string(i + 1));
  DependencyGraph graph = builder.build();
  StrongComponents chain = detail::strongly_connected(graph);
  ASSERT_EQ(chain.size(), static_cast<std::size_t>(COUNT));
  EXPECT_EQ(graph.name(chain[0][0]), "n999999");  // the last node completes first
  EXPECT_EQ(graph.name(chain[COUNT - 1][0]), "n0");

  for (int i = 0; i < COUNT; ++i)
    builder.add_edge("n" + std::to_string(i), "n" + std::to_string((i + 1) % COUNT));
  graph = builder.build();
  const StrongComponents ring = detail::strongly_connected(graph);
  ASSERT_EQ(ring.size(), 1u);
  ASSERT_EQ(ring[0].size(), static_cast<std::size_t>(COUNT));
  EXPECT_EQ(graph.name(ring[0].front()), "n999999");
  EXPECT_EQ(graph.name(ring[0].back()), "n0");
}

CycleComponent entry(Names nodes, Names cycle, std::string type = "file") {
  return {{std::move(nodes), std::move(type)}, std::move(cycle)};
}

TEST(CondenseCycles, OneSortedEntryPerComponentWithAShortestCycle) {
  struct Case {
    const char* name;
    DependencyGraph graph;
    std::vector<CycleComponent> expected;
  };
  const std::vector<Case> cases = {
      {"empty", {}, {}},
      {"acyclic", {{"a", {"b"}}, {"b", {"c"}}}, {}},
      {"only a self-loop", {{"a", {"a"}}, {"b", {"b", "a"}}}, {}},
      {"two members", {{"x", {"w"}}, {"w", {"x"}}}, {entry({"w", "x"}, {"w", "x", "w"})}},
      {"a shorter cycle wins",
       {{"a", {"b", "c"}}, {"b", {"c"}}, {"c", {"a"}}},
       {entry({"a", "b", "c"}, {"a", "c", "a"})}},
      {"equal lengths: smallest successor first",
       {{"a", {"c", "b"}}, {"c", {"a"}}, {"b", {"a"}}},
       {entry({"a", "b", "c"}, {"a", "b", "a"})}},
      {"by size, then first member; edges in and out change nothing",
       {{"m", {"n"}},
        {"n", {"o"}},
        {"o", {"m", "b"}},
        {"b", {"c"}},
        {"c", {"d"}},
        {"d", {"b", "p"}},
        {"z", {"y", "m"}},
        {"y", {"x"}},
        {"x", {"q"}},
        {"q", {"z"}}},
       {entry({"q", "x", "y", "z"}, {"q", "z", "y", "x", "q"}),
        entry({"b", "c", "d"}, {"b", "c", "d", "b"}),
        entry({"m", "n", "o"}, {"m", "n", "o", "m"})}},
      {"the search never leaves the component",
       {{"a", {"b", "e"}}, {"e", {"a"}}, {"b", {"c"}}, {"c", {"d"}}, {"d", {"b"}}},
       {entry({"b", "c", "d"}, {"b", "c", "d", "b"}), entry({"a", "e"}, {"a", "e", "a"})}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(condense_cycles(c.graph, "file"), c.expected) << c.name;
  }
  // The other key order, and the level recorded as given.
  EXPECT_EQ(condense_cycles({{"w", {"x"}}, {"x", {"w"}}}, "component"),
            std::vector{entry({"w", "x"}, {"w", "x", "w"}, "component")});
}

TEST(ShortestCycle, UsesTheGivenStartAndFailsOffACycle) {
  const DependencyGraph graph{{"a", {"b", "a"}}, {"b", {"c"}}, {"c", {"b"}}};
  EXPECT_EQ(detail::shortest_cycle(graph, {"a"}), (Names{"a", "a"}));
  EXPECT_EQ(detail::shortest_cycle(graph, {"c", "b"}), (Names{"c", "b", "c"}));

  const DependencyGraph one_way{{"a", {"b"}}};
  try {
    detail::shortest_cycle(one_way, {"a", "b"});
    FAIL() << "no cycle expected";
  } catch (const std::invalid_argument& error) {
    EXPECT_STREQ(error.what(), "a is on no cycle of ['a', 'b']");
  }
  // b reaches a only through c, which is not a member.
  EXPECT_THROW(detail::shortest_cycle(graph, {"b", "a"}), std::invalid_argument);
  EXPECT_THROW(detail::shortest_cycle(graph, {"zz"}), std::invalid_argument);
  EXPECT_THROW(detail::shortest_cycle(graph, {}), std::invalid_argument);
}

TEST(CircularDependencies, FileLevelCountsProvenCodeEdgesBetweenProductionFiles) {
  struct Case {
    const char* name;
    std::string back_kind;
    std::optional<std::string> back_resolution;
    std::string via;  // the file of the back edge's source
    bool cycle;
  };
  const std::vector<Case> cases = {
      {"proven", "import", "local", "y.py", true},
      {"ambiguous", "call", "ambiguous", "y.py", false},
      {"model", "call", "model", "y.py", false},
      {"no resolution", "call", std::nullopt, "y.py", false},
      {"a document's link", "link", "exact", "y.py", false},
      {"through a test file", "call", "exact", "tests/t.py", false},
  };
  for (const auto& c : cases) {
    testing::TestIndex index;
    const auto x = index.symbol(index.file("x.py"), "x");
    const auto y = index.symbol(index.file(c.via), "y");
    index.edge(x, y, "call", "exact");
    index.edge(y, x, c.back_kind, c.back_resolution);
    auto repo = index.open();
    const auto found = repo->find_circular_dependencies("file");
    if (c.cycle) {
      EXPECT_EQ(found, std::vector{entry({"x.py", c.via}, {"x.py", c.via, "x.py"})}) << c.name;
    } else {
      EXPECT_TRUE(found.empty()) << c.name;
    }
    // A test file is no node, whichever end of an edge it is.
    EXPECT_FALSE(repo->dependency_graph("file").find("tests/t.py")) << c.name;
  }
}

TEST(CircularDependencies, FileLevelWorkedExampleAndAnyOtherLevel) {
  testing::TestIndex index;
  const auto file_a = index.file("a");
  const auto a = index.symbol(file_a, "fa");
  const auto b = index.symbol(index.file("b"), "fb");
  const auto c = index.symbol(index.file("c"), "fc");
  index.edge(a, b);
  index.edge(b, c);
  index.edge(c, a);
  index.edge(b, a, "reference");
  index.edge(a, b, "type");  // the same pair of files again
  const auto a2 = index.symbol(file_a, "fa2");
  index.edge(a, a2);  // within one file
  index.edge(a2, a);
  auto repo = index.open();
  const std::vector expected{entry({"a", "b", "c"}, {"a", "b", "a"})};
  EXPECT_EQ(repo->find_circular_dependencies("file"), expected);
  EXPECT_EQ(repo->find_circular_dependencies("files"), expected);
  EXPECT_TRUE(repo->find_circular_dependencies().empty());  // no components in this index

  const DependencyGraph graph = repo->dependency_graph("file");
  EXPECT_EQ(graph.node_count(), 3u);
  EXPECT_EQ(graph.edge_count(), 4u);  // no file depends on itself
}

// A host whose component dependencies are given by the test.
struct ComponentHost : Repository {
  using Repository::Repository;
  std::vector<ComponentDependency> get_component_dependencies(bool exclude_test_files) override {
    asked.push_back(exclude_test_files);
    return dependencies;
  }
  std::vector<ComponentDependency> dependencies;
  std::vector<bool> asked;
};

TEST(CircularDependencies, ComponentLevelTakesTheHostsDependencies) {
  testing::TestIndex index;
  index.close();
  ComponentHost host(index.path());
  host.dependencies = {{"web", "core"},  {"core", "web"},  {"web", "core"},
                       {"core", "util"}, {"util", "util"}, {"db", "util"}};
  EXPECT_EQ(host.find_circular_dependencies(),
            std::vector{entry({"core", "web"}, {"core", "web", "core"}, "component")});
  EXPECT_EQ(host.asked, std::vector<bool>{true});

  const DependencyGraph graph = host.dependency_graph("component");
  EXPECT_EQ(names(graph, graph.keys()), (Names{"web", "core", "util", "db"}));
  EXPECT_EQ(graph.edge_count(), 5u);
}

}  // namespace
}  // namespace quarry
