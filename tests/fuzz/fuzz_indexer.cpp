// Feeds mutated Python sources, or JavaScript and TypeScript ones, a few files at a time, to
// the parsers and the resolver the way the indexer does, and checks that what they make
// holds together.
//
//   fuzz_indexer [ITERATIONS [SEED [FIRST]]]
#include <algorithm>
#include <exception>
#include <span>

#include "fuzz_support.h"
#include "indexer/python_parser.h"
#include "indexer/python_resolver.h"
#include "indexer/script_modules.h"
#include "indexer/script_parser.h"

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

// Script seeds: modules of each system, classes, types, JSX, and damage.
const std::vector<std::string> SCRIPT_SEEDS = [] {
  std::string chain;
  for (int i = 0; i < 1000; ++i)
    chain += "?.b()";
  return std::vector<std::string>{
      // ES modules: named, default, namespace, re-exports, dynamic import, default export.
      "import def, { a as b, type T } from './a';\nimport * as ns from '../pkg/b.js';\n"
      "export { b, c as d } from './c';\nexport * from '@org/ui';\nexport * as q from './v';\n"
      "export default function main(x: T = def()) { return ns.f(b(x)).then(r => r.g); }\n"
      "const lazy = await import('./lazy');\nexport = main;\n",
      // CommonJS: require forms, module.exports and exports.x.
      "const a = require('./a');\nconst { b, c: d } = require('../b');\n"
      "const e = require('./e').e;\nmodule.exports = { a, d, f() { return a.g(); }, h: () => 1 };"
      "\nmodule.exports.x = require('./x');\nexports.y = function y() {};\nmodule.exports = a;\n",
      // TypeScript: classes, interfaces, enums, decorators, parameter properties, generics.
      "@Component({ s: 1 })\nexport abstract class A<T> extends B<T> implements I, J.K {\n"
      "  @Input() private f: Svc = new Svc();\n  #p = 1;\n  static s = () => this.m();\n"
      "  constructor(private readonly r: Repo, public q?: Q) { super(r); }\n"
      "  @log m(this: A<T>, x: number): Promise<R | null> { return this.r.get(x).m(); }\n"
      "  get g() { return super.g; }\n  set g(v) {}\n  abstract n(): void;\n"
      "  [Symbol.iterator]() {}\n  'quoted'() {}\n}\ninterface I extends J<K> { x: T; m(): void }\n"
      "type U = A | B<C> & { k: typeof x };\nenum E { X = 1, Y = X }\n"
      "declare global { interface Window { q: Q } }\ndeclare module 'm' { export const z: 1; }\n"
      "namespace N.M { export function f() {} }\nfunction over(a: string): void;\n",
      // JSX and TSX.
      "export const App = ({ items }: Props) => (\n  <Layout.Main title={t('x')}>\n"
      "    {items.map(i => <Item key={i.id} {...i} />)}\n    <div>text {`${a}`}</div>\n"
      "    <></>\n  </Layout.Main>\n);\nfunction Item(p) { return <li onClick={() => p.f()}/>; }\n",
      // Syntax errors and what the parser invents to recover.
      "import { from './a';\nexport { as } from;\nclass { m( { }\nfunction (a, { return }\n"
      "const = require();\nmodule.exports = ;\n@\nexport default\nx.\n<div\n",
      // Ill-formed UTF-8, NUL bytes, carriage returns.
      "const caf\xc3\xa9 = () => '\xff\xfe';\n\0\nclass K\xc0\xafL { m\xe2\x82() {} }\r"
      "function f() {\r return caf\xc3\xa9(); }\r\n"s,
      "",
      // Deep nesting and long chains.
      "x = " + std::string(2000, '(') + "1" + std::string(2000, ')') +
          ";\ny = " + std::string(2000, '[') + ";\na" + chain + ";\nnew A().b" + chain + ";\n"};
}();
const std::vector<std::string> SCRIPT_TOKENS = split(
    "function |class |(|)|{|}|=>|;|\n|'|\"|`|${|\0|\xff|\xe2\x82|\r|import |export |"
    "default |from './a'|require('./b')|module.exports = |exports.z = |this.|super.|new |"
    "<A>|</A>|<b/>|@d |: T|implements |extends |interface |type X = |enum |declare |*|,|="sv,
    '|');
// Relative neighbours, a package and its entry, declarations, a test.
const std::vector<std::string> SCRIPT_PATHS =
    split("a.ts v.ts c.js e.jsx lazy.mjs x.cjs pkg/b.ts pkg/index.tsx types.d.ts a.test.ts", ' ');

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
        !listed("module class function method constant variable import toplevel interface "
                "type_alias enum",
                d.kind) ||
        !in(d.start_line, 1, d.end_line) || d.end_line > lines || bad_hints(d.hints) ||
        std::any_of(d.attributes.begin(), d.attributes.end(),
                    [&](const auto& a) { return a.name.empty() || bad_hints(a.hints); }) ||
        (d.kind == "class" ? !in(d.body_scope, 1, scopes - 1)
         : listed("constant variable interface function", d.kind)
             ? !in(d.body_scope, -1, scopes - 1) || d.body_scope == 0
             : d.body_scope != -1))
      fail("definition " + show(d.fqn) + " " + std::string(d.kind) + " at " +
           std::to_string(d.start_line));
  }
  for (std::int64_t j = 0; j < scopes; ++j) {
    const indexer::Scope& s = m.scopes[std::size_t(j)];
    bool bad = (j > 0 && !in(s.parent, 0, j - 1)) || !in(s.owner, 0, defs - 1) ||
               !in(s.method_of, -1, defs - 1);
    for (const auto& [name, b] : s.bindings)
      bad |= !in(b.definition, -1, defs - 1) || bad_hints(b.hints);
    if (bad) {
      std::string detail = " parent " + std::to_string(s.parent) + " owner " + std::to_string(s.owner) + " method_of " + std::to_string(s.method_of);
      for (const auto& [name, b] : s.bindings) detail += " [" + std::string(name) + " def " + std::to_string(b.definition) + " hints " + std::to_string(b.hints.size()) + (bad_hints(b.hints) ? " BAD" : "") + "]";
      fail("scope " + show(s.fqn) + detail);
    }
  }
  for (const indexer::Use& use : m.uses) {
    if (!in(use.scope, 0, scopes - 1) || !in(use.source, 0, defs - 1) || !in(use.line, 1, lines))
      fail("use at line " + std::to_string(use.line) + " in scope " + std::to_string(use.scope));
  }
}

// One iteration: two to four files of one language (Python, or scripts), each a seed
// mutated a few times or left as it is.
std::vector<std::string> check_iteration(Chooser& choose) {
  static indexer::PythonParser parser;
  static const indexer::ScriptModules modules(SCRIPT_PATHS, {});
  static indexer::ScriptParser script_parser(modules);
  const bool scripts = choose.one_in(2);
  std::vector<std::string> paths = scripts ? SCRIPT_PATHS : PATHS, problems;
  std::vector<indexer::FileModel> models;
  // Symbol ids: file f's are [ids[f], ids[f + 1]).
  std::vector<std::int64_t> lines, ids = {1 + std::int64_t(choose.below(100000))};
  try {
    for (std::size_t i = 0, count = 2 + choose.below(3); i < count; ++i) {
      std::swap(paths[i], paths[i + choose.below(paths.size() - i)]);
      const auto& seeds = scripts ? SCRIPT_SEEDS : SEEDS;
      std::string text = choose.pick(seeds);
      for (std::size_t e = choose.one_in(4) ? 0 : 1 << choose.below(6); e > 0; --e)
        mutate(choose, text, scripts ? SCRIPT_TOKENS : TOKENS, choose.pick(seeds));
      lines.push_back(std::count(text.begin(), text.end(), '\n') + 1);
      models.push_back(scripts ? script_parser.parse(paths[i], text)
                               : parser.parse(paths[i], text));
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
            !listed("call import inherits implements reference type decorates export", e.kind))
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
