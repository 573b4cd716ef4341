// Feeds mutated Python sources, a few files at a time, to the parser and the resolver the
// way the indexer does, and checks that what they make holds together.
//
//   fuzz_indexer [ITERATIONS [SEED [FIRST]]]
#include <algorithm>
#include <exception>
#include <span>

#include "fuzz_support.h"
#include "indexer/python_parser.h"
#include "indexer/python_resolver.h"

namespace quarry::fuzz {

using namespace std::literals;

// Seeds, each about a few features of the language or one kind of damage.
const std::vector<std::string> SEEDS = [] {
  std::string nested, chain;
  for (int i = 0; i < 1000; ++i) {
    chain += ".b";
    if (i < 80) nested += std::string(i, ' ') + (i % 3 == 2 ? "class K:\n" : "def f(self):\n");
  }
  return std::vector<std::string>{
      // Relative and aliased imports, decorators, classes, super(), an inheritance cycle.
      "from .a import helper, Base as B\nfrom .. import top\nfrom .sub.m import *\nimport pkg.m "
      "as mm\ndef deco(fn):\n    @functools.wraps(fn)\n    def inner(*a): return fn(*a)\nclass "
      "Base:\n    def run(self, n: 'int' = 0): return self.step(n)\n@deco\n@mm.register(k=1)\n"
      "class Child(Base, B, metaclass=M):\n    def v(self): return super().run(1)\n    def "
      "step(self, n): return Child().run(n)\nclass C(C): pass\n__all__ = ['Base', 'Child']\n",
      // Nested functions, lambdas, the walrus, async, type parameters.
      "def outer(a, b=lambda x: x + 1, *rest, **kw):\n    total = 0\n    def middle():\n        "
      "nonlocal total\n        global counter\n        def inner(y=(lambda: 2)()):\n            "
      "return [w for w in range(y) if (k := w)] + [k]\n        total += inner()\n    return "
      "lambda *a: middle(*a)\n@(lambda f: f)\n@a.b[0].c\nasync def h(r: R) -> S:\n    async with "
      "s() as x: await x.save()\ntype Alias = list[int]\ndef g[T](x: T): pass\n",
      // Odd escapes, raw strings, f-strings, an unterminated one.
      "s = \"t\\tq\\\"b\\\\s\\\nc\"\nb = b'\\x00\\xff'\nr = r\"\\d\\\"\" + R'''raw\\''''\n"
      "u = '\\uD800 \\U00110000 \\N{no such}'\nt = \"\"\"a \"\" ' \\\"\"\" b\"\"\"\nf = "
      "f\"{x!r:>{w}} {{lit}} {f'{n:{d}}'} {a['k']=}\"\ng = rf\"{x}\\n\" F\"{z:%Y}\" f\"{\n",
      // except*, match statements, soft keywords as names.
      "try:\n    pass\nexcept* (ValueError, TypeError) as group:\n    handle(group)\nif (n := "
      "len(data)) > 10:\n    print(n)\nmatch command.split():\n    case [\"go\", d]:\n        "
      "move(d)\n    case Point(x=0, y=yy) as p if yy > 0:\n        p.show()\n    case {\"k\": v, "
      "**rest}:\n        use(v)\n    case _:\n        pass\nmatch = type = 1\n",
      // Syntax errors, some of which make the parser invent empty names.
      "def broken(:\n    return )\nclass :\n    pass\n    def f(self\nx = [1, 2,\n@\nimport\n"
      "from . import\ndef g(): return 1 +\nelse:\n  class A(: pass\nfor , in x: pass\n*= 1\n",
      // Ill-formed UTF-8 and NUL bytes.
      "def caf\xc3\xa9():\n    return '\xff\xfe'\n\0\ndef \xed\xa0\x80x(): pass\n"
      "class K\xc0\xafL(\xf4\x90\x80\x80):\n    def m\xe2\x82(self): pass\nname\0 = 1\n"s,
      // Carriage returns alone and mixed with line feeds.
      "import os\rdef f():\r    return os.path\rclass C:\r    def m(self):\r        return f()\r"
      "\rx = C().m()\r\ndef g():\r\n    return x\n\r",
      "",
      // Deep nesting, and long attribute chains from a name and from a call.
      "x = " + std::string(2000, '(') + "1" + std::string(2000, ')') + "\ny = " +
          std::string(2000, '[') + "\n" + nested + std::string(80, ' ') + "return f(self.f)\n",
      "a" + chain + "()\nf()" + chain + ".c()\n"};
}();
// Insertions that open, close or break a construct.
const std::vector<std::string> TOKENS = split(
    "def |class |(|)|:|\n    |\"\"\"|\\\n|\0|\xff|\xe2\x82|\r|\n|lambda |from . import |@|"
    "await |nonlocal |super().|self.|except* |match x:\n|case |:=|f\"{|}|'|*|,|=|[|.|if |"
    "__all__ = [|pkg.sub.m|A(|t\"{|rt'{|except A, B, C:|def f[T = "sv,
    '|');
// Packages, a stub, a src layout, a test, and a package and a module of the same name.
const std::vector<std::string> PATHS = split(
    "pkg/__init__.py pkg/a.py pkg/sub/__init__.py pkg/sub/m.py pkg/sub.py top.py "
    "src/app/main.py pkg/stubs.pyi tests/test_a.py __init__.py",
    ' ');

bool in(std::int64_t value, std::int64_t low, std::int64_t high) {
  return value >= low && value <= high;
}

bool well_formed(std::string_view text) {
  for (std::size_t i = 0, n = 0; i < text.size(); i += n) {
    if ((n = cli::utf8_length(text, i)) == 0) return false;
  }
  return true;
}

// What is wrong with `m`, the model of a file of `lines` lines.
void check_model(std::vector<std::string>& problems, const indexer::FileModel& m,
                 std::int64_t lines) {
  const auto defs = std::ssize(m.definitions), scopes = std::ssize(m.scopes);
  const auto fail = [&](const std::string& what) { problems.push_back(m.path + ": " + what); };
  const auto bad_hints = [&](std::span<const indexer::TypeHint> hints) {
    return hints.size() > indexer::MAX_TYPE_HINTS ||
           std::any_of(hints.begin(), hints.end(), [&](const indexer::TypeHint& h) {
             return !in(h.scope, 0, scopes - 1) || h.chain.empty() || h.chain.front().empty() ||
                    h.chain.front() == indexer::UNKNOWN_VALUE;
           });
  };
  if (defs < 2 || scopes < 1 || m.scopes[0].parent != -1) return fail("no module or its scope");
  for (const indexer::Definition& d : m.definitions) {
    if (d.name.empty() || !d.fqn.ends_with(d.name) || !well_formed(d.fqn) ||
        !well_formed(d.signature.value_or("")) ||
        !listed("module class function method constant variable import toplevel", d.kind) ||
        !in(d.start_line, 1, d.end_line) || d.end_line > lines || bad_hints(d.hints) ||
        std::any_of(d.attributes.begin(), d.attributes.end(),
                    [&](const auto& a) { return a.name.empty() || bad_hints(a.hints); }) ||
        (d.kind == "class" ? !in(d.body_scope, 1, scopes - 1) : d.body_scope != -1))
      fail("definition " + show(d.fqn) + " " + std::string(d.kind) + " at " +
           std::to_string(d.start_line));
  }
  for (std::int64_t j = 0; j < scopes; ++j) {
    const indexer::Scope& s = m.scopes[std::size_t(j)];
    bool bad = (j > 0 && !in(s.parent, 0, j - 1)) || !in(s.owner, 0, defs - 1) ||
               !in(s.method_of, -1, defs - 1);
    for (const auto& [name, b] : s.bindings)
      bad |= !in(b.definition, -1, defs - 1) || bad_hints(b.hints);
    if (bad) fail("scope " + show(s.fqn));
  }
  for (const indexer::Use& use : m.uses) {
    if (!in(use.scope, 0, scopes - 1) || !in(use.source, 0, defs - 1) || !in(use.line, 1, lines))
      fail("use at line " + std::to_string(use.line) + " in scope " + std::to_string(use.scope));
  }
}

// One iteration: two to four files, each a seed mutated a few times or left as it is.
std::vector<std::string> check_iteration(Chooser& choose) {
  static indexer::PythonParser parser;
  std::vector<std::string> paths = PATHS, problems;
  std::vector<indexer::FileModel> models;
  // Symbol ids: file f's are [ids[f], ids[f + 1]).
  std::vector<std::int64_t> lines, ids = {1 + std::int64_t(choose.below(100000))};
  try {
    for (std::size_t i = 0, count = 2 + choose.below(3); i < count; ++i) {
      std::swap(paths[i], paths[i + choose.below(paths.size() - i)]);
      std::string text = choose.pick(SEEDS);
      for (std::size_t e = choose.one_in(4) ? 0 : 1 << choose.below(6); e > 0; --e)
        mutate(choose, text, TOKENS, choose.pick(SEEDS));
      lines.push_back(std::count(text.begin(), text.end(), '\n') + 1);
      models.push_back(parser.parse(paths[i], text));
      ids.push_back(ids.back() + std::ssize(models.back().definitions));
      check_model(problems, models.back(), lines.back());
    }
    // The resolver trusts the models' indices: only models that hold together go to it.
    if (!problems.empty()) return problems;
    const indexer::PythonResolver resolver(models, ids[0]);
    for (std::size_t f = 0; f < models.size(); ++f) {
      const indexer::FileLinks links = resolver.resolve(f);
      for (const auto& e : links.edges) {
        if (!in(e.source, ids[f], ids[f + 1] - 1) || !in(e.target, ids[0], ids.back() - 1) ||
            !in(e.line, 1, lines[f]) || !listed("exact import local ambiguous", e.resolution) ||
            !listed("call import inherits reference type decorates export", e.kind))
          problems.push_back(models[f].path + ": edge " + show(e.kind) + " " + show(e.resolution));
      }
      for (const auto& p : links.pending) {
        if (!in(p.source, ids[f], ids[f + 1] - 1) || p.name.empty() || !in(p.line, 1, lines[f]))
          problems.push_back(models[f].path + ": pending " + show(p.name));
      }
    }
  } catch (const std::exception& error) {
    problems.push_back(std::string("exception escaped: ") + error.what());
  }
  return problems;
}

}  // namespace quarry::fuzz

int main(int argc, char** argv) {
  return quarry::fuzz::loop(argc, argv, "fuzz_indexer", 700, quarry::fuzz::check_iteration);
}
