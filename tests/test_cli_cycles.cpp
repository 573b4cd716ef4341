#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>

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

// Renders `dot` with Graphviz as SVG: what dot exits with, its SVG and its messages.
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

TEST(CyclesCli, TextJsonAndUsageErrors) {
  const std::string db = QUARRY_EXAMPLE_DB;
  const Result text = run({"--db", db, "cycles"});
  ASSERT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("shop -> shop.billing -> shop\n"), std::string::npos) << text.out;
  EXPECT_TRUE(text.out.ends_with("\n1 cycle between components (2 components in all)\n"))
      << text.out;

  const Result files = run({"cycles", "--level", "file", "--json", "--db", db});
  ASSERT_EQ(files.status, 0) << files.err;
  // Ordered objects compare their keys in order.
  EXPECT_EQ(nlohmann::ordered_json::parse(files.out), nlohmann::ordered_json::parse(R"([{
      "nodes": ["shop/billing/invoice.py", "shop/billing/tax.py", "shop/cart.py"],
      "type": "file", "cycle": ["shop/billing/invoice.py", "shop/billing/tax.py",
                                "shop/cart.py", "shop/billing/invoice.py"]}])"));

  const std::vector<std::pair<std::vector<std::string>, std::string>> usage = {
      {{"cycles", "--level", "files"}, "--level takes component or file, not 'files'"},
      {{"cycles", "--format", "svg"}, "--format takes text, json, sarif, github or dot, not 'svg'"},
      {{"--json", "cycles", "--format", "dot"}, "--format dot cannot be combined with --json"},
  };
  for (auto [args, message] : usage) {
    args.insert(args.begin(), {"--db", db});
    const Result r = run(args);
    EXPECT_EQ(r.status, 2) << message;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
  }
}

TEST(CyclesCli, DotDrawsEveryCycleSafelyForAnyName) {
  // One cycle of three files with awkward names; its shortest cycle is c -> a -> b -> c,
  // b -> a is an edge among its members, and d -> a leads in from outside.
  testing::TestIndex index, empty;
  const auto a = index.symbol(index.file("we\"ird\\"), "a");
  const auto b = index.symbol(index.file("new\nline\\N"), "b");
  const auto c = index.symbol(index.file("bad\xff<&>.py"), "c");
  const auto d = index.symbol(index.file("d.py"), "d");
  for (const auto& [source, target] : {std::pair{a, b}, {b, c}, {c, a}, {b, a}, {d, a}})
    index.edge(source, target);
  index.close();
  empty.close();

  const Result r = run({"--db", index.path(), "cycles", "--level", "file", "--format", "dot"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(occurrences(r.out, " -> "), 4u) << r.out;
  EXPECT_EQ(occurrences(r.out, "color=red"), 3u) << r.out;
  const Result none = run({"--db", empty.path(), "cycles", "--format", "dot"});
  ASSERT_EQ(none.status, 0) << none.err;

  if (std::system("command -v dot >/dev/null 2>&1") != 0) GTEST_SKIP() << "no Graphviz dot";
  const Result svg = render(r.out);
  EXPECT_EQ(svg.status, 0) << svg.err;
  EXPECT_EQ(svg.err, "");  // not even a warning about the encoding
  EXPECT_EQ(occurrences(svg.out, "class=\"node\""), 3u);
  EXPECT_EQ(occurrences(svg.out, "class=\"cluster\""), 1u);
  for (const char* label : {">we&quot;ird\\</text>", ">new\xEF\xBF\xBDline\\N</text>",
                            ">bad\xEF\xBF\xBD&lt;&amp;&gt;.py</text>"})
    EXPECT_NE(svg.out.find(label), std::string::npos) << label << "\n" << svg.out;
  const Result blank = render(none.out);
  EXPECT_EQ(blank.status, 0) << blank.err;
  EXPECT_EQ(occurrences(blank.out, "class=\"cluster\""), 0u);
}

}  // namespace
}  // namespace quarry
