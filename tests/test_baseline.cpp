// Baselines: written and read back, malformed files refused, and the findings they hide.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "report/baseline.h"

namespace quarry::report {
namespace {

namespace fs = std::filesystem;

UnusedSymbol dead(std::string fqn, DeadConfidence confidence = DeadConfidence::certain) {
  UnusedSymbol s;
  s.fqn = std::move(fqn);
  s.name = s.fqn.substr(s.fqn.rfind('.') + 1);
  s.kind = "function";
  s.file = "m.py";
  s.line = 1;
  s.confidence = confidence;
  s.used_by_tests = false;
  return s;
}

CycleComponent cycle(std::string type, std::vector<std::string> nodes) {
  CycleComponent c;
  c.nodes = std::move(nodes);
  c.type = std::move(type);
  c.cycle = c.nodes;
  c.cycle.push_back(c.nodes.front());
  return c;
}

std::vector<std::string> fqns(const std::vector<UnusedSymbol>& symbols) {
  std::vector<std::string> out;
  for (const auto& s : symbols)
    out.push_back(s.fqn);
  return out;
}

TEST(Baseline, RoundTripsAndRefusesWhatIsNotABaseline) {
  const fs::path dir = fs::path(::testing::TempDir()) / "quarry_baseline_files";
  fs::remove_all(dir);
  const Baseline written =
      make_baseline({dead("m.b"), dead("m.a")}, {cycle("file", {"b.py", "a.py"})});
  write_baseline(dir / "nested" / "baseline.json", written);
  EXPECT_EQ(read_baseline(dir / "nested" / "baseline.json"), written);
  // Members are compared sorted, whatever order the cycle lists them in.
  EXPECT_TRUE(written.cycles.contains({"file", {"a.py", "b.py"}}));

  struct Case {
    std::string text;
    std::string message;
  };
  const std::vector<Case> cases = {
      {"not json", "not JSON"},
      {"[]", "not a JSON object"},
      {R"({"dead_code": []})", "'version'"},
      {R"({"version": 2})", "'version'"},
      {R"({"version": 1, "dead_code": {}})", "'dead_code' is not a list"},
      {R"({"version": 1, "dead_code": [{"fqn": "a"}]})", "no string 'kind'"},
      {R"({"version": 1, "cycles": [{"type": "file", "members": [1]}]})", "not a string"},
  };
  for (const auto& c : cases) {
    std::ofstream(dir / "bad.json") << c.text;
    try {
      read_baseline(dir / "bad.json");
      ADD_FAILURE() << c.text;
    } catch (const BaselineError& error) {
      EXPECT_NE(std::string(error.what()).find("bad.json"), std::string::npos) << error.what();
      EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << error.what();
    }
  }
  EXPECT_THROW(read_baseline(dir / "missing.json"), BaselineError);
  fs::remove_all(dir);
}

TEST(Baseline, HidesKnownFindingsAndCountsStaleEntries) {
  const Baseline baseline =
      make_baseline({dead("m.old"), dead("m.gone"), dead("m.skipped")},
                    {cycle("file", {"a.py", "b.py"}), cycle("component", {"x", "y"})});
  const auto ignored = [](const std::string& fqn) { return fqn == "m.skipped"; };

  const auto symbols = filter_dead_code(
      {dead("m.new"), dead("m.old"), dead("m.skipped"), dead("m.fresh", DeadConfidence::likely)},
      &baseline, ignored);
  EXPECT_EQ(fqns(symbols.kept), (std::vector<std::string>{"m.new", "m.fresh"}));
  EXPECT_EQ(symbols.hidden, 1);
  EXPECT_EQ(symbols.stale, 1);  // m.gone; m.skipped still occurs
  EXPECT_EQ(failing_dead_code(symbols.kept, "certain"), 1);
  EXPECT_EQ(failing_dead_code(symbols.kept, "likely"), 1);
  EXPECT_EQ(failing_dead_code(symbols.kept, "any"), 2);
  EXPECT_THROW(failing_dead_code(symbols.kept, "some"), std::invalid_argument);

  // Without a baseline nothing is hidden and nothing is stale.
  const auto plain = filter_dead_code({dead("m.old")}, nullptr, nullptr);
  EXPECT_EQ(plain.kept.size(), 1u);
  EXPECT_EQ(plain.hidden + plain.stale, 0);

  // A cycle is known by its members in any order; the other level's entries are not stale.
  const auto files = filter_cycles(
      {cycle("file", {"b.py", "a.py"}), cycle("file", {"c.py", "d.py"})}, "file", &baseline);
  ASSERT_EQ(files.kept.size(), 1u);
  EXPECT_EQ(files.kept.front().nodes.front(), "c.py");
  EXPECT_EQ(files.hidden, 1);
  EXPECT_EQ(files.stale, 0);
  const auto components = filter_cycles({}, "component", &baseline);
  EXPECT_EQ(components.stale, 1);
}

}  // namespace
}  // namespace quarry::report
