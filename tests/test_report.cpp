#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "report/report.h"
#include "test_index.h"

namespace quarry {
namespace {

using Json = nlohmann::ordered_json;
using Result = testing::CliResult;
constexpr auto run = testing::run_cli;

// The SARIF 2.1.0 schema (pinned in tests/sarif/package.json) and the validator script that
// checks a document against it with Debian's python3-jsonschema.
const std::string SCHEMA = QUARRY_SOURCE_DIR
    "/tests/sarif/node_modules/@microsoft/jest-sarif/lib/schemas/sarif-2.1.0-rtm.5.json";
const std::string VALIDATOR = QUARRY_SOURCE_DIR "/tests/sarif/validate.py";

// What the validator says of `document`: its exit status (0 valid) and its messages.
std::pair<int, std::string> validate(const Json& document) {
  const std::string base = ::testing::TempDir() + "quarry_report_sarif";
  std::ofstream(base + ".json", std::ios::binary)
      << document.dump(-1, ' ', false, Json::error_handler_t::replace);
  const int status = std::system(("/usr/bin/python3 '" + VALIDATOR + "' '" + SCHEMA + "' '" + base +
                                  ".json' 2>'" + base + ".err'")
                                     .c_str());
  std::string err = testing::file_bytes(base + ".err");
  std::filesystem::remove(base + ".json");
  std::filesystem::remove(base + ".err");
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, err};
}

// An index whose names need escaping in a URI: a space, '#', '?', a byte that is not
// UTF-8, and a definition on line 0; its two files form a cycle.
std::string write_awkward_index(testing::TestIndex& index) {
  const auto a = index.file("src dir/#a?.py");
  const auto b = index.file("src dir/b\xff.py");
  const auto f = index.symbol(a, "f", "function", "pkg.f", 0);
  const auto g = index.symbol(b, "g", "function", "pkg.g\xff", 4);
  index.symbol(a, "unused", "class", "pkg.unused", 9);
  index.symbol(b, "h", "function", "pkg.h", 0);
  index.edge(f, g, "call", "exact", 2);
  index.edge(g, f, "call", "exact", 5);
  index.close();
  return index.path();
}

TEST(Report, SarifValidatesAndCarriesEveryFinding) {
  ASSERT_TRUE(std::filesystem::exists(SCHEMA)) << "run scripts/install-deps.sh";
  testing::TestIndex awkward;
  const std::string example = QUARRY_EXAMPLE_DB, odd = write_awkward_index(awkward);
  struct Case {
    std::string db;
    std::vector<std::string> args;
    std::string first_uri;  // of the first result, "" for none
  };
  const std::vector<Case> cases = {
      {example, {"dead-code"}, "shop/api/handlers.py"},
      {example, {"cycles"}, ""},
      {example, {"cycles", "--level", "file"}, "shop/billing/invoice.py"},
      {odd, {"dead-code"}, "src%20dir/%23a%3F.py"},
      {odd, {"cycles", "--level", "file"}, "src%20dir/%23a%3F.py"},
  };
  Json first;
  for (const Case& c : cases) {
    std::vector<std::string> args{"--db", c.db, "--format", "sarif"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const Result sarif = run(args);
    ASSERT_EQ(sarif.status, 0) << sarif.err;
    const Json log = Json::parse(sarif.out);
    const auto [status, message] = validate(log);
    EXPECT_EQ(status, 0) << c.args[0] << ": " << message;

    // One result per finding of the JSON output, each of the rule its finding belongs to.
    args[3] = "json";
    const Json findings = Json::parse(run(args).out);
    const Json& results = log["runs"][0]["results"];
    const bool dead = c.args[0] == "dead-code";
    ASSERT_EQ(results.size(), dead ? findings["symbols"].size() : findings.size());
    ASSERT_FALSE(results.empty());
    for (std::size_t i = 0; i < results.size(); ++i) {
      const Json& finding = dead ? findings["symbols"][i] : findings[i];
      const bool certain = dead && finding["confidence"] == "certain";
      EXPECT_EQ(results[i]["ruleId"], dead ? "dead-code-" + finding["confidence"].get<std::string>()
                                           : "cycle-" + finding["type"].get<std::string>());
      EXPECT_EQ(results[i]["level"], certain ? "warning" : "note");
      EXPECT_EQ(results[i]["properties"]["precision"], !dead || certain ? "high" : "medium");
      const Json& rules = log["runs"][0]["tool"]["driver"]["rules"];
      EXPECT_EQ(rules[results[i]["ruleIndex"].get<std::size_t>()]["id"], results[i]["ruleId"]);
    }
    const Json& location = results[0]["locations"][0];
    EXPECT_EQ(location.contains("physicalLocation"), !c.first_uri.empty());
    if (!c.first_uri.empty()) {
      EXPECT_EQ(location["physicalLocation"]["artifactLocation"]["uri"], c.first_uri);
      EXPECT_EQ(location["physicalLocation"]["artifactLocation"]["uriBaseId"], "SRCROOT");
    }
    if (first.is_null()) first = log;
  }

  // The validator rejects what the schema forbids, so a pass above means something.
  const std::vector<std::pair<std::string, Json>> breakages = {
      {"/runs/0/results/0/level", "severe"},
      {"/runs/0/results/0/locations/0/physicalLocation/region/startLine", 0},
      {"/version", "2.2"},
      {"/runs/0/tool/driver/rules/0/shortDescription", "no object"},
  };
  for (const auto& [pointer, value] : breakages) {
    Json broken = first;
    broken[Json::json_pointer(pointer)] = value;
    EXPECT_EQ(validate(broken).first, 1) << pointer;
  }
}

UnusedSymbol unused(std::string fqn, std::string file, std::int64_t line,
                    DeadConfidence confidence = DeadConfidence::certain) {
  std::vector<std::string> reasons;
  if (confidence == DeadConfidence::likely) reasons = {"named like a handler", "a guess"};
  return {{fqn, fqn.substr(fqn.rfind('.') + 1), "function", std::move(file), line},
          confidence,
          std::move(reasons),
          false};
}

std::string rendered(report::Format format, const auto& model, report::RenderContext context = {}) {
  std::ostringstream out;
  context.out = &out;
  report::render(context, format, model);
  return out.str();
}

// A finding keeps its fingerprint when its line moves and only then; the root is a file URI.
TEST(Report, SarifFingerprintsFollowTheNameAndTheRootIsAUri) {
  const auto sarif = [](const UnusedSymbol& symbol) {
    const report::DeadCodeReport model{.page = {.symbols = {symbol}, .total_count = 1}};
    return Json::parse(
        rendered(report::Format::sarif, model, {.root = "/work/my repo", .version = "1.2.3"}));
  };
  const Json before = sarif(unused("pkg.mod.f", "pkg/mod.py", 10));
  const Json moved = sarif(unused("pkg.mod.f", "pkg/mod.py", 42));
  const Json renamed = sarif(unused("pkg.mod.g", "pkg/mod.py", 10));
  const auto fingerprint = [](const Json& log) {
    return log["runs"][0]["results"][0]["partialFingerprints"];
  };
  EXPECT_EQ(fingerprint(before), fingerprint(moved));
  EXPECT_NE(fingerprint(before), fingerprint(renamed));
  EXPECT_EQ(fingerprint(before)["quarryFindingId/v1"], "pkg.mod.f");
  EXPECT_EQ(
      moved["runs"][0]["results"][0]["locations"][0]["physicalLocation"]["region"]["startLine"],
      42);
  EXPECT_EQ(before["runs"][0]["originalUriBaseIds"]["SRCROOT"]["uri"], "file:///work/my%20repo/");
  EXPECT_EQ(before["runs"][0]["tool"]["driver"]["version"], "1.2.3");

  CycleComponent cycle{{{"a.py", "b.py"}, "file"}, {"a.py", "b.py", "a.py"}};
  const report::CyclesReport cycles{.level = "file", .cycles = {{cycle, {}}}};
  EXPECT_EQ(Json::parse(rendered(
                report::Format::sarif,
                cycles))["runs"][0]["results"][0]["partialFingerprints"]["quarryFindingId/v1"],
            "a.py, b.py");
}

TEST(Report, GithubAnnotationsEscapeWhatTheRunnerWouldRead) {
  // Paths are shown through the display function; a hostile name can neither add a line nor
  // end the command early, nor send control characters to the log.
  const report::RenderContext context{
      .display_path = [](std::string_view path) { return "sub/" + std::string(path); }};
  struct Case {
    UnusedSymbol symbol;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {unused("m.f", "a.py", 3),
       "::warning file=sub/a.py,line=3,title=Unused definition::function m.f is never used.\n"},
      {unused("m.f\r\n::error::x%", "a,b:c%d\ne\x1b.py", 0),
       "::warning file=sub/a%2Cb%3Ac%25d%0Ae\\x1b.py,line=1,title=Unused definition::function "
       "m.f%0D%0A::error::x%25 is never used.\n"},
      {unused("m.g", "a.py", 7, DeadConfidence::likely),
       "::notice file=sub/a.py,line=7,title=Probably unused definition::function m.g is "
       "probably never used: named like a handler; a guess.\n"},
  };
  for (const Case& c : cases) {
    const report::DeadCodeReport model{.page = {.symbols = {c.symbol}, .total_count = 1}};
    EXPECT_EQ(rendered(report::Format::github, model, context), c.expected);
  }
  const CycleComponent cycle{{{"p", "q"}, "component"}, {"p", "q", "p"}};
  EXPECT_EQ(rendered(report::Format::github,
                     report::CyclesReport{.level = "component", .cycles = {{cycle, {}}}}, context),
            "::notice title=Dependency cycle between components::Dependency cycle between 2 "
            "components: p, q. Shortest cycle: p -> q -> p.\n");
}

TEST(Report, FormatsAreGlobalOptionsThatEachCommandOffersOrRefuses) {
  const std::string db = QUARRY_EXAMPLE_DB;
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string message;  // in the error, when status is not 0
  };
  const std::vector<Case> cases = {
      {{"--format", "sarif", "dead-code"}, 0, ""},
      {{"dead-code", "--format", "github"}, 0, ""},
      {{"cycles", "--format", "sarif", "--level", "file"}, 0, ""},
      {{"cycles", "--format", "dot"}, 0, ""},
      {{"--format", "json", "--json", "stats"}, 0, ""},
      {{"stats", "--format", "sarif"}, 2, "stats has no sarif output"},
      {{"callers", "12", "--format", "github"}, 2, "callers has no github output"},
      {{"impact", "shop.cart.Cart.total", "--format", "dot"}, 2, "impact has no dot output"},
      {{"dead-code", "--format", "dot"}, 2, "dead-code has no dot output"},
      {{"index", "/nonexistent/quarry/dir", "--format", "sarif"}, 2, "index has no sarif output"},
      {{"--format", "xml", "stats"}, 2, "--format takes text, json, sarif, github or dot"},
      {{"--json", "dead-code", "--format", "sarif"}, 2, "--format sarif cannot be combined"},
  };
  for (auto c : cases) {
    c.args.insert(c.args.begin(), {"--db", db});
    const Result r = run(c.args);
    EXPECT_EQ(r.status, c.status) << c.args[2] << " " << c.args[3] << ": " << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
  }

  // --json is --format json, wherever it stands.
  const std::vector<std::vector<std::string>> commands = {{"stats"},
                                                          {"callers", "12", "13"},
                                                          {"impact", "shop.cart.Cart.total"},
                                                          {"dead-code"},
                                                          {"cycles", "--level", "file"}};
  for (const auto& command : commands) {
    std::vector<std::string> short_form{"--db", db, "--json"}, long_form{"--db", db};
    short_form.insert(short_form.end(), command.begin(), command.end());
    long_form.insert(long_form.end(), command.begin(), command.end());
    long_form.insert(long_form.end(), {"--format", "json"});
    const Result a = run(short_form), b = run(long_form);
    EXPECT_EQ(a.status, 0) << a.err;
    EXPECT_EQ(a.out, b.out) << command[0];
    EXPECT_TRUE(a.out.starts_with("{") || a.out.starts_with("[")) << a.out;
  }
}

// A cycle's drawing keeps the dependencies among its members, sorted, and no other.
TEST(Report, CyclesCarryTheEdgesAmongTheirMembers) {
  const report::CyclesReport small = report::make_cycles_report(
      DependencyGraph{{"b", {"a", "out"}}, {"a", {"b", "c"}}, {"c", {"a"}}}, "file");
  using Edges = std::vector<std::pair<std::string, std::string>>;
  EXPECT_EQ(small.cycles.at(0).edges, (Edges{{"a", "b"}, {"a", "c"}, {"b", "a"}, {"c", "a"}}));
}

TEST(Report, TextSummariesCountWhatABaselineHid) {
  const CycleComponent cycle{{{"p", "q"}, "component"}, {"p", "q", "p"}};
  struct Case {
    report::BaselineCounts baseline;
    std::string dead_code_end, cycles_end;
  };
  const std::vector<Case> cases = {
      {{}, "1 of 1 unused definition shown\n", "(2 components in all)\n"},
      {{.used = true, .hidden = 12, .stale = 2},
       "shown; 12 findings hidden by the baseline, 2 baseline entries no longer occur\n",
       "in all); 12 findings hidden by the baseline, 2 baseline entries no longer occur\n"},
      {{.used = true, .hidden = 1, .stale = 1},
       "shown; 1 finding hidden by the baseline, 1 baseline entry no longer occurs\n",
       "in all); 1 finding hidden by the baseline, 1 baseline entry no longer occurs\n"},
      {{.used = true, .hidden = 0, .stale = 0},
       "shown; 0 findings hidden by the baseline\n",
       "in all); 0 findings hidden by the baseline\n"},
  };
  for (const Case& c : cases) {
    const report::DeadCodeReport dead{
        .page = {.symbols = {unused("m.f", "a.py", 3)}, .total_count = 1}, .baseline = c.baseline};
    const report::CyclesReport cycles{
        .level = "component", .cycles = {{cycle, {}}}, .baseline = c.baseline};
    EXPECT_TRUE(rendered(report::Format::text, dead).ends_with(c.dead_code_end))
        << rendered(report::Format::text, dead);
    EXPECT_TRUE(rendered(report::Format::text, cycles).ends_with(c.cycles_end))
        << rendered(report::Format::text, cycles);
  }
}

}  // namespace
}  // namespace quarry
