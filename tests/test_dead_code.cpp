#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "storage/repository_quality.h"
#include "test_index.h"
#include "utils/language_filter.h"

namespace quarry {
namespace {

const char* const ONLY_GUESSES = "its only uses are guesses between same-named definitions";
const char* const NAMESAKE_GUESSED =
    "a use of another definition of its name is a guess: it may be a use of this one";
const char* const NOT_BOUND_YET = "a reference to its name is not bound yet";

struct Exposed : QualityQueries {
  using QualityQueries::dead_code_candidates;
};

std::vector<std::string> fqns(const std::vector<UnusedSymbol>& symbols) {
  std::vector<std::string> out;
  for (const auto& s : symbols)
    out.push_back(s.fqn);
  return out;
}

// One row per symbol: its file (a, b, c: production; t: test; d: a document), fqn, kind,
// its one use ("exact", "ambiguous", "model" or "null" from production, "test" or
// "test-ambiguous" from a test) and what the listing says: "-" left out, else one letter per
// reason in order (g: only guesses, n: a namesake's guess, p: pending) and T when tests use it.
TEST(DeadCode, EachRuleListsOrLeavesOutItsSymbol) {
  struct Case {
    char file;
    std::string fqn, kind, use, expect;
    std::optional<std::string> signature = std::nullopt;
  };
  const std::vector<Case> cases = {
      {'a', "a.used", "function", "exact", "-"},
      {'a', "a.null_resolution", "function", "null", ""},
      {'a', "a.guessed", "function", "ambiguous", "g"},
      {'a', "a.modelled", "function", "model", "g"},
      {'a', "a.tested", "function", "test", "T"},
      {'a', "a.test_guess", "function", "test-ambiguous", "T"},
      // Entry names, dunder names, decorators, kinds, languages, test files.
      {'a', "a.main", "function", "", "-"},
      {'a', "a.__main__", "function", "", "-"},
      {'a', "a.__init__", "method", "", "-"},
      {'a', "a.___", "function", "", ""},
      {'a', "a.__x", "function", "", ""},
      {'a', "a.decorated", "function", "", "-", "@app.route('/') def decorated():"},
      {'a', "a.at_inside", "function", "", "", "def at_inside(): # @"},
      {'a', "a.Klass", "class", "", ""},
      {'d', "d.in_document", "function", "", "-"},
      {'t', "t.helper", "function", "", "-"},
      // 1: nested in a function or method of the same file.
      {'a', "a.outer", "function", "exact", "-"},
      {'a', "a.outer.inner", "function", "", "-"},
      {'c', "a.outer.elsewhere", "function", "", ""},
      // 2: an override of a member of the base (Child inherits from Base).
      {'a', "a.Base", "class", "exact", "-", "class Base:"},
      {'a', "a.Base.run", "method", "", ""},
      {'a', "a.Child", "class", "exact", "-", "class Child(Base):"},
      {'a', "a.Child.run", "method", "", "-"},
      {'a', "a.Child.own", "method", "", ""},
      // 3: a class that names a base the index does not hold.
      {'a', "a.Ext", "class", "exact", "-", "class Ext(Thread):"},
      {'a', "a.Ext.m", "method", "", "-"},
      {'a', "a.Jv", "class", "exact", "-", "class Jv extends Foo"},
      {'a', "a.Jv.m", "method", "", "-"},
      {'a', "a.Ts", "class", "exact", "-", "class Ts IMPLEMENTS I"},
      {'a', "a.Ts.m", "method", "", "-"},
      {'a', "a.Plain", "class", "exact", "-", "class Plain:"},
      {'a', "a.Plain.m", "method", "", ""},
      // 4: the name is used on another method from production code.
      {'a', "a.P.close", "method", "exact", "-"},
      {'a', "a.Q.close", "method", "", "-"},
      {'a', "a.shared", "function", "exact", "-"},
      {'a', "a.R.shared", "method", "", ""},
      {'a', "a.P.flush", "method", "test", "T"},
      {'a', "a.Q.flush", "method", "", ""},
      // 5: runtime members, matched literally, methods only.
      {'a', "a.S.get", "method", "", "-"},
      {'a', "a.S.say \"hi\"", "method", "", "-"},
      {'a', "a.S.back\\slash", "method", "", "-"},
      {'a', "a.S.100%", "method", "", "-"},
      {'a', "a.S.tab\there", "method", "", "-"},
      {'a', "a.S.naïve", "method", "", "-"},
      {'a', "a.S.backslash", "method", "", ""},
      {'a', "a.S.back\\\\slash", "method", "", ""},
      {'a', "a.S.100x", "method", "", ""},
      {'a', "a.get", "function", "", ""},
      // 6: dispatch families: three of one kind and prefix in one file.
      {'a', "a.V.visit_a", "method", "", "-"},
      {'a', "a.V.visit_b", "method", "", "-"},
      {'a', "a.W.visit_c", "method", "", "-"},
      {'b', "b.V.visit_x", "method", "", ""},
      {'b', "b.V.visit_y", "method", "", ""},
      {'b', "b.D.do_y", "method", "", ""},
      {'b', "b.D.do_z", "method", "", ""},
      {'b', "b.do_x", "function", "", ""},
      // Reasons.
      {'a', "a.dup", "function", "", "n"},
      {'c', "c.dup", "function", "ambiguous", "g"},
      {'a', "a.pend", "function", "", "p"},
      {'a', "a.trio", "function", "model", "gnp"},
      {'c', "c.trio", "function", "ambiguous", "gnp"},
  };
  testing::TestIndex index;
  const std::map<char, std::int64_t> files = {{'a', index.file("app/a.py")},
                                              {'b', index.file("app/b.py")},
                                              {'c', index.file("app/c.py")},
                                              {'t', index.file("tests/test_a.py")},
                                              {'d', index.file("doc.md", "markdown")}};
  const auto user = index.symbol(files.at('b'), "user", "function", "b.user", 1, {}, true);
  const auto tester = index.symbol(files.at('t'), "tester", "function", "t.tester");
  std::map<std::string, std::int64_t> ids;
  for (const Case& c : cases) {
    const std::string name = c.fqn.substr(c.fqn.rfind('.') + 1);
    const auto id = ids[c.fqn] =
        index.symbol(files.at(c.file), name, c.kind, c.fqn, 1, c.signature);
    if (c.use.empty()) continue;
    const bool test = c.use.starts_with("test");
    const std::string resolution = test ? (c.use == "test" ? "exact" : "ambiguous") : c.use;
    index.edge(test ? tester : user, id, "call",
               resolution == "null" ? std::nullopt : std::optional(resolution));
  }
  index.edge(ids.at("a.Child"), ids.at("a.Base"), "inherits");
  index.pending("pend");
  index.pending("trio");
  index.symbol(files.at('a'), "exported", "function", "a.exported", 1, {}, true);
  for (const char* kind :
       {"constant", "variable", "file", "section", "import", "module", "toplevel"})
    index.symbol(files.at('a'), kind, kind, std::string("a.") + kind);
  auto repo = index.open();

  const DeadCodePage page = repo->get_dead_code(
      {.limit = 1000,
       .runtime_members = {"naïve", "tab\there", "100%", "back\\slash", "say \"hi\"", "get"}});
  std::map<std::string, UnusedSymbol> listed;
  for (const UnusedSymbol& s : page.symbols)
    listed.emplace(s.fqn, s);
  const std::map<char, std::string> reason_of = {
      {'g', ONLY_GUESSES}, {'n', NAMESAKE_GUESSED}, {'p', NOT_BOUND_YET}};
  std::size_t expected_count = 0;
  for (const Case& c : cases) {
    const auto found = listed.find(c.fqn);
    ASSERT_EQ(found != listed.end(), c.expect != "-") << c.fqn;
    if (c.expect == "-") continue;
    ++expected_count;
    std::vector<std::string> reasons;
    for (char flag : c.expect)
      if (flag != 'T') reasons.push_back(reason_of.at(flag));
    EXPECT_EQ(found->second.reasons, reasons) << c.fqn;
    EXPECT_EQ(found->second.confidence,
              reasons.empty() ? DeadConfidence::certain : DeadConfidence::likely);
    EXPECT_EQ(found->second.used_by_tests, c.expect.find('T') != std::string::npos) << c.fqn;
  }
  EXPECT_EQ(listed.size(), expected_count) << "exported, the kinds never listed, or a user";
  EXPECT_EQ(page.total_count, static_cast<std::int64_t>(expected_count));
}

TEST(DeadCode, RecordsCarryTheSymbolAndItsFile) {
  testing::TestIndex empty;
  EXPECT_EQ(empty.open()->get_dead_code(), DeadCodePage{});
  testing::TestIndex index;
  const auto f = index.file("pkg/mod.py");
  index.symbol(f, "unused", "function", "pkg.mod.unused", 42);
  auto repo = index.open();
  const UnusedSymbol expected{{"pkg.mod.unused", "unused", "function", "pkg/mod.py", 42},
                              DeadConfidence::certain,
                              {},
                              false};
  const auto before = repo->db().statements_run();
  EXPECT_EQ(repo->get_dead_code(), (DeadCodePage{{expected}, 1, false}));
  EXPECT_EQ(repo->db().statements_run() - before, 2u) << "a count and a page, nothing per row";
}

TEST(DeadCode, ComponentFilterAndCandidateParameters) {
  testing::TestIndex index;
  const auto core = index.component("core");
  index.component("empty");
  index.symbol(index.file("core/a.py", "python", core), "a");
  index.symbol(index.file("core/b.py", "python", core), "b");
  index.symbol(index.file("loose.py"), "c");
  auto repo = index.open();

  const std::vector<std::pair<std::optional<std::string>, std::int64_t>> cases = {
      {std::nullopt, 3}, {"", 3}, {"core", 2}, {"empty", 0}, {"unknown", 0}};
  for (const auto& [component, count] : cases) {
    const auto page = repo->get_dead_code({.component = component});
    EXPECT_EQ(page.total_count, count) << component.value_or("(none)");
    EXPECT_EQ(static_cast<std::int64_t>(page.symbols.size()), count);

    const auto [clause, params] = Exposed::dead_code_candidates("1", component);
    const bool named = component && !component->empty();
    EXPECT_TRUE(clause.starts_with("FROM symbols s JOIN files f ON s.file_id = f.id WHERE "));
    EXPECT_EQ(clause.ends_with(" AND f.component_id = (SELECT id FROM components WHERE name = ?)"),
              named);
    EXPECT_EQ(params.size(), SOURCE_LANGUAGES.size() + 9 + (named ? 1 : 0));
    EXPECT_EQ(params.back(), named ? Value(*component) : Value(std::string("__main__")));
  }
}

// Certain candidates b.py:1, a.py:9 and a.py:2 are listed by path and line, before the
// likely ones a.py:5 and a.py:1, and paged across that order.
TEST(DeadCode, CertainBeforeLikelyAcrossPages) {
  testing::TestIndex index;
  const auto a = index.file("a.py"), b = index.file("b.py");
  for (const auto& [file, name, line] : std::vector<std::tuple<std::int64_t, std::string, int>>{
           {b, "c3", 1}, {a, "c2", 9}, {a, "c1", 2}, {a, "l2", 5}, {a, "l1", 1}})
    index.symbol(file, name, "function", name, line);
  index.pending("l1");
  index.pending("l2");
  auto repo = index.open();

  using F = std::vector<std::string>;
  const F all = {"c1", "c2", "c3", "l1", "l2"};
  const std::int64_t max = std::numeric_limits<std::int64_t>::max();
  const std::vector<std::tuple<std::int64_t, std::int64_t, F, bool>> cases = {
      {100, 0, all, false},
      {0, 0, {}, true},
      {0, 4, {}, true},
      {0, 5, {}, false},
      {5, 0, all, false},                           // exact fit
      {4, 0, F(all.begin(), all.end() - 1), true},  // one more
      {2, 2, {"c3", "l1"}, true},
      {2, 4, {"l2"}, false},
      {3, 5, {}, false},
      {3, 99, {}, false},
      {max, 1, F(all.begin() + 1, all.end()), false}};
  for (const auto& [limit, offset, expected, truncated] : cases) {
    const auto page = repo->get_dead_code({.limit = limit, .offset = offset});
    EXPECT_EQ(fqns(page.symbols), expected) << limit << "@" << offset;
    EXPECT_EQ(page.truncated, truncated) << limit << "@" << offset;
    EXPECT_EQ(page.total_count, 5);
  }
}

TEST(DeadCode, RuntimeMembersInAnyOrderOrRepeatedGiveTheSamePage) {
  testing::TestIndex index;
  const auto f = index.file("a.py");
  std::int64_t line = 0;
  for (const char* name : {"get", "put", "pop"})
    index.symbol(f, name, "method", std::string("a.C.") + name, ++line);
  auto repo = index.open();
  using F = std::vector<std::string>;
  const F all = {"a.C.get", "a.C.put", "a.C.pop"};
  const std::vector<std::pair<F, F>> cases = {{{}, all},
                                              {{"get", "put"}, {"a.C.pop"}},
                                              {{"put", "get"}, {"a.C.pop"}},
                                              {{"get", "put", "get", "put"}, {"a.C.pop"}},
                                              {{"Get", " put", ""}, all}};
  for (const auto& [members, listed] : cases) {
    EXPECT_EQ(fqns(repo->get_dead_code({.runtime_members = members}).symbols), listed);
  }
}

TEST(JsonStringArray, EscapesWhatJsonRequiresAndPassesTheRest) {
  using S = std::vector<std::string>;
  const std::vector<std::pair<S, std::string>> cases = {
      {{}, "[]"},
      {{""}, R"([""])"},
      {{"a", "b"}, R"(["a","b"])"},
      {{"say \"hi\""}, R"(["say \"hi\""])"},
      {{"a\\b"}, R"(["a\\b"])"},
      {{"\n\t\x01\x1f"}, R"(["\u000a\u0009\u0001\u001f"])"},
      {{"naïve \x7f %_'"}, "[\"naïve \x7f %_'\"]"}};
  for (const auto& [values, text] : cases) {
    EXPECT_EQ(json_string_array(values), text);
  }
}

}  // namespace
}  // namespace quarry
