#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "storage/repository_quality.h"
#include "test_index.h"

namespace quarry {
namespace {

using Names = std::vector<std::string>;

Names fqns(const std::vector<UnusedSymbol>& symbols) {
  Names out;
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
      // 3: a class that names a base the index does not hold (Base names none).
      {'a', "a.Ext", "class", "exact", "-", "class Ext(Thread):"},
      {'a', "a.Ext.m", "method", "", "-"},
      {'a', "a.Jv", "class", "exact", "-", "class Jv extends Foo"},
      {'a', "a.Jv.m", "method", "", "-"},
      {'a', "a.Ts", "class", "exact", "-", "class Ts IMPLEMENTS I"},
      {'a', "a.Ts.m", "method", "", "-"},
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
      {'a', "a.S.100x", "method", "", ""},
      {'a', "a.get", "function", "", ""},
      // 6: dispatch families: three of one kind and prefix in one file (in b: two methods
      // and a function).
      {'a', "a.V.visit_a", "method", "", "-"},
      {'a', "a.V.visit_b", "method", "", "-"},
      {'a', "a.W.visit_c", "method", "", "-"},
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
  std::map<std::string, std::string> expected;
  for (const Case& c : cases) {
    const std::string name = c.fqn.substr(c.fqn.rfind('.') + 1);
    const auto id = ids[c.fqn] =
        index.symbol(files.at(c.file), name, c.kind, c.fqn, 1, c.signature);
    if (c.expect != "-") expected[c.fqn] = c.expect;
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

  const DeadCodeOptions options{.limit = 1000,
                                .runtime_members = {"100%", "back\\slash", "say \"hi\"", "get"}};
  const DeadCodePage page = repo->get_dead_code(options);
  EXPECT_EQ(page, repo->dead_code_by_statements(options));
  const std::map<std::string, char> letter = {
      {"its only uses are guesses between same-named definitions", 'g'},
      {"a use of another definition of its name is a guess: it may be a use of this one", 'n'},
      {"a reference to its name is not bound yet", 'p'}};
  std::map<std::string, std::string> listed;
  for (const UnusedSymbol& s : page.symbols) {
    std::string& flags = listed[s.fqn];
    for (const std::string& reason : s.reasons)
      flags += letter.at(reason);
    if (s.used_by_tests) flags += 'T';
    EXPECT_EQ(s.confidence, s.reasons.empty() ? DeadConfidence::certain : DeadConfidence::likely);
  }
  EXPECT_EQ(listed, expected);
  EXPECT_EQ(page.total_count, static_cast<std::int64_t>(expected.size()));
}

// Certain candidates b.py:1, a.py:9 and a.py:2 are listed by path and line, before the
// likely ones a.py:5 and a.py:1. Only a.py lies in the component core.
TEST(DeadCode, PagesComponentsAndRuntimeMembers) {
  testing::TestIndex index;
  const auto core = index.component("core");
  index.component("empty");
  const auto a = index.file("a.py", "python", core), b = index.file("b.py");
  for (const auto& [file, name, line] : std::vector<std::tuple<std::int64_t, std::string, int>>{
           {b, "c3", 1}, {a, "c2", 9}, {a, "c1", 2}, {a, "l2", 5}, {a, "l1", 1}})
    index.symbol(file, name, "method", "m." + name, line);
  index.pending("l1");
  index.pending("l2");
  auto repo = index.open();

  // Every page is the same in memory and by statements (a count and a page at most,
  // nothing per row).
  const auto listing = [&repo](const DeadCodeOptions& options) {
    const auto before = repo->db().statements_run();
    const DeadCodePage page = repo->dead_code_by_statements(options);
    EXPECT_LE(repo->db().statements_run() - before, 2u);
    EXPECT_EQ(repo->get_dead_code(options), page);
    return page;
  };
  const DeadCodePage first = listing({});
  const Names all = {"m.c1", "m.c2", "m.c3", "m.l1", "m.l2"};
  ASSERT_EQ(fqns(first.symbols), all);
  EXPECT_EQ(
      first.symbols[0],
      (UnusedSymbol{{"m.c1", "c1", "method", "a.py", 2}, DeadConfidence::certain, {}, false}));
  EXPECT_EQ(first.symbols[4].reasons, Names{"a reference to its name is not bound yet"});

  const std::int64_t max = std::numeric_limits<std::int64_t>::max();
  const std::vector<std::tuple<std::int64_t, std::int64_t, Names, bool>> pages = {
      {0, 4, {}, true},
      {0, 5, {}, false},
      {5, 0, all, false},                               // an exact fit
      {4, 0, Names(all.begin(), all.end() - 1), true},  // one more
      {2, 2, {"m.c3", "m.l1"}, true},
      {3, 99, {}, false},
      {max, 1, Names(all.begin() + 1, all.end()), false}};
  for (const auto& [limit, offset, expected, truncated] : pages) {
    const auto page = listing({.limit = limit, .offset = offset});
    EXPECT_EQ(fqns(page.symbols), expected) << limit << "@" << offset;
    EXPECT_EQ(page.truncated, truncated) << limit << "@" << offset;
    EXPECT_EQ(page.total_count, 5);
  }

  const std::vector<std::pair<std::string, Names>> components = {
      {"", all}, {"core", {"m.c1", "m.c2", "m.l1", "m.l2"}}, {"empty", {}}, {"unknown", {}}};
  for (const auto& [component, expected] : components) {
    const auto page = repo->get_dead_code({.component = component});
    EXPECT_EQ(fqns(page.symbols), expected) << component;
    EXPECT_EQ(page.total_count, static_cast<std::int64_t>(expected.size())) << component;
  }

  // The same names in any order, or twice, give the same page; names match exactly.
  const Names rest = {"m.c1", "m.c3", "m.l2"};
  const std::vector<std::pair<Names, Names>> members = {{{"c2", "l1"}, rest},
                                                        {{"l1", "c2"}, rest},
                                                        {{"l1", "c2", "l1", "c2"}, rest},
                                                        {{"C2", " l1", ""}, all}};
  for (const auto& [names, expected] : members)
    EXPECT_EQ(fqns(listing({.runtime_members = names}).symbols), expected);
}

// Quotes and backslashes are covered by the runtime members above.
TEST(JsonStringArray, EscapesControlCharactersAndPassesTheRest) {
  EXPECT_EQ(json_string_array(Names{"\n\t\x01\x1f", ""}), R"(["\u000a\u0009\u0001\u001f",""])");
  EXPECT_EQ(json_string_array(Names{"naïve \x7f %_'"}), "[\"naïve \x7f %_'\"]");
}

}  // namespace
}  // namespace quarry
