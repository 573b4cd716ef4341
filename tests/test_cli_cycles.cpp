#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "test_index.h"

namespace quarry {
namespace {

using Result = testing::CliResult;
constexpr auto run = testing::run_cli;

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

// Renders `dot` with Graphviz as SVG; the result is what dot exits with, its SVG and its
// messages.
Result render(const std::string& dot) {
  const std::string base = ::testing::TempDir() + "quarry_cycles_render";
  std::ofstream(base + ".dot", std::ios::binary) << dot;
  const int status = std::system(
      ("dot -Tsvg '" + base + ".dot' -o '" + base + ".svg' 2>'" + base + ".err'").c_str());
  Result result{status, testing::file_bytes(base + ".svg"), testing::file_bytes(base + ".err")};
  for (const char* extension : {".dot", ".svg", ".err"})
    std::filesystem::remove(base + extension);
  return result;
}

bool have_dot() {
  return std::system("command -v dot >/dev/null 2>&1") == 0;
}

TEST(CyclesCli, ExampleIndexAtBothLevels) {
  const std::string db = QUARRY_EXAMPLE_DB;
  const Result components = run({"--db", db, "cycles"});
  ASSERT_EQ(components.status, 0) << components.err;
  EXPECT_NE(components.out.find("shop -> shop.billing -> shop\n"), std::string::npos)
      << components.out;
  EXPECT_TRUE(components.out.ends_with("\n1 cycle between components (2 components in all)\n"))
      << components.out;

  const Result files = run({"cycles", "--level", "file", "--json", "--db", db});
  ASSERT_EQ(files.status, 0) << files.err;
  const auto json = nlohmann::ordered_json::parse(files.out);
  const std::vector<std::string> members{"shop/billing/invoice.py", "shop/billing/tax.py",
                                         "shop/cart.py"};
  ASSERT_EQ(json.size(), 1u);
  std::vector<std::string> keys;
  for (const auto& [key, value] : json[0].items())
    keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"nodes", "type", "cycle"}));
  EXPECT_EQ(json[0]["nodes"], members);
  EXPECT_EQ(json[0]["type"], "file");
  EXPECT_EQ(json[0]["cycle"],
            (std::vector<std::string>{members[0], members[1], members[2], members[0]}));
}

TEST(CyclesCli, BadLevelsAndFormatsAreUsageErrors) {
  const std::string db = QUARRY_EXAMPLE_DB;
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"cycles", "--level", "files"}, "--level takes component or file, not 'files'"},
      {{"cycles", "--level", ""}, "--level"},
      {{"cycles", "--format", "svg"}, "--format takes text or dot, not 'svg'"},
      {{"--json", "cycles", "--format", "dot"}, "--format dot cannot be combined with --json"},
  };
  for (auto [args, message] : cases) {
    args.insert(args.begin(), {"--db", db});
    const Result r = run(args);
    EXPECT_EQ(r.status, 2) << message;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
  }
}

TEST(CyclesCli, DotDrawsEveryCycleSafelyForAnyName) {
  // One cycle of three files with awkward names; its shortest cycle is c -> a -> b -> c,
  // b -> a is an edge among its members, and d -> a leads in from outside.
  testing::TestIndex index;
  const auto a = index.symbol(index.file("we\"ird\\"), "a");
  const auto b = index.symbol(index.file("new\nline\\N"), "b");
  const auto c = index.symbol(index.file("bad\xff<&>.py"), "c");
  const auto d = index.symbol(index.file("d.py"), "d");
  for (const auto& [source, target] : {std::pair{a, b}, {b, c}, {c, a}, {b, a}, {d, a}})
    index.edge(source, target);
  testing::TestIndex empty;
  index.close();
  empty.close();

  const Result r = run({"--db", index.path(), "cycles", "--level", "file", "--format", "dot"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(r.out.starts_with("digraph cycles {\n")) << r.out;
  EXPECT_EQ(occurrences(r.out, " -> "), 4u) << r.out;
  EXPECT_EQ(occurrences(r.out, "color=red"), 3u) << r.out;
  EXPECT_NE(r.out.find("label=\"we\\\"ird\\\\\""), std::string::npos) << r.out;
  const Result none = run({"--db", empty.path(), "cycles", "--format", "dot"});
  ASSERT_EQ(none.status, 0) << none.err;
  EXPECT_EQ(occurrences(none.out, "subgraph"), 0u) << none.out;

  if (!have_dot()) GTEST_SKIP() << "Graphviz's dot is not on PATH";
  const Result svg = render(r.out);
  EXPECT_EQ(svg.status, 0) << svg.err;
  EXPECT_EQ(svg.err, "");  // not even a warning about the encoding
  EXPECT_EQ(occurrences(svg.out, "class=\"node\""), 3u);
  EXPECT_EQ(occurrences(svg.out, "class=\"edge\""), 4u);
  EXPECT_EQ(occurrences(svg.out, "class=\"cluster\""), 1u);
  EXPECT_NE(svg.out.find(">we&quot;ird\\</text>"), std::string::npos) << svg.out;
  EXPECT_NE(svg.out.find(">new\xEF\xBF\xBDline\\N</text>"), std::string::npos) << svg.out;
  EXPECT_NE(svg.out.find(">bad\xEF\xBF\xBD&lt;&amp;&gt;.py</text>"), std::string::npos) << svg.out;
  EXPECT_EQ(render(none.out).status, 0);
}

}  // namespace
}  // namespace quarry
