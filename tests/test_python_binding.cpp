// Fixture projects, one per family of Python constructs, with the edges each must give and
// the dead-code verdicts that follow from them.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "storage/repository.h"
#include "test_index.h"

namespace quarry {
namespace {

using testing::EdgeRow;
using testing::SourceTree;
using testing::TempTree;

// Classes that share method names, so that only a known receiver type tells them apart.
const std::string SHAPES =
    "class Config:\n"
    "    def get_value(self): pass\n"
    "    def run(self): pass\n"
    "class Parser:\n"
    "    def parse(self): pass\n"
    "    def run(self): pass\n"
    "def make_parser() -> 'Parser':\n"
    "    return Parser()\n";

TEST(PythonBinding, ReceiverTypesBindMethodCallsExactly) {
  const std::vector<testing::BindingCase> families = {
      {"parameter annotations: plain, Optional, union with None, string, imported for typing",
       {{"shapes.py", SHAPES},
        {"use.py",
         "from typing import Optional, TYPE_CHECKING\n"
         "if TYPE_CHECKING:\n"
         "    from shapes import Config, Parser\n"
         "def f(a: Config, b: Optional[Parser], c: 'Config | None', d: Parser | None = None):\n"
         "    a.get_value()\n"
         "    b.parse()\n"
         "    c.run()\n"
         "    d.run()\n"}},
       {{"use.f", "shapes.Config.get_value", "call", "exact"},
        {"use.f", "shapes.Parser.parse", "call", "exact"},
        {"use.f", "shapes.Config.run", "call", "exact"},
        {"use.f", "shapes.Parser.run", "call", "exact"}},
       {{"use.f", "shapes.Parser.run", "call", "ambiguous"}},
       {}},
      {"constructor, return annotation, call chains, with and except targets",
       {{"shapes.py", SHAPES},
        {"use.py",
         "from shapes import Parser, make_parser\n"
         "class Failure(Exception):\n"
         "    def explain(self): pass\n"
         "def f():\n"
         "    x = make_parser()\n"
         "    x.run()\n"
         "    make_parser().parse()\n"
         "    with Parser() as p:\n"
         "        p.run()\n"
         "    try:\n"
         "        pass\n"
         "    except Failure as e:\n"
         "        e.explain()\n"}},
       {{"use.f", "shapes.Parser.run", "call", "exact"},
        {"use.f", "shapes.Parser.parse", "call", "exact"},
        {"use.f", "shapes.make_parser", "call", "import"},
        {"use.f", "use.Failure.explain", "call", "exact"}},
       {{"use.f", "shapes.Config.run", "call", "ambiguous"},
        {"use.f", "shapes.Config.run", "call", "exact"}},
       {}},
      {"a function without a return annotation returns what its return statements give",
       {{"shapes.py", SHAPES},
        {"use.py",
         "from shapes import Config\n"
         "def build(flag):\n"
         "    if flag:\n"
         "        return None\n"
         "    return Config()\n"
         "def go():\n"
         "    build(1).get_value()\n"}},
       {{"use.go", "shapes.Config.get_value", "call", "exact"}},
       {},
       {}},
      {"a parameter no call gives is its default, when that is something of the repository",
       {{"shapes.py", SHAPES},
        {"use.py",
         "from shapes import Parser, Config\n"
         "def load(text, parser=Parser, config=Config(), fallback=None):\n"
         "    parser().parse()\n"
         "    config.get_value()\n"
         "    fallback.run()\n"
         "def given(parser=Parser):\n"
         "    parser.run()\n"
         "given(Config())\n"}},
       {{"use.load", "shapes.Parser.parse", "call", "exact"},
        {"use.load", "shapes.Config.get_value", "call", "exact"},
        {"use.load", "shapes.Parser.run", "call", "ambiguous"},
        {"use.given", "shapes.Config.run", "call", "exact"}},
       {{"use.given", "shapes.Parser.run", "call", "exact"}},
       {}},
      {"a member the class lacks is guessed at in the few classes deriving from it (mixins)",
       {{"mix.py",
         "class Reader:\n    def read(self):\n        return self.parse_all()\n"
         "class Parser:\n    def parse_all(self): pass\n"
         "class Other:\n    def parse_all(self): pass\n"
         "class Loader(Reader, Parser):\n    pass\n"}},
       {{"mix.Reader.read", "mix.Parser.parse_all", "call", "ambiguous"}},
       {{"mix.Reader.read", "mix.Other.parse_all", "call", "ambiguous"},
        {"mix.Reader.read", "mix.Parser.parse_all", "call", "exact"}},
       {}},
      {"type[C] is the class itself; a function returning outside values returns them",
       {{"shapes.py", SHAPES},
        {"use.py",
         "import json\n"
         "from typing import Type\n"
         "from shapes import Config\n"
         "def kind() -> Type[Config]:\n"
         "    return Config\n"
         "def load():\n"
         "    return json.loads('')\n"
         "def go():\n"
         "    kind()().run()\n"
         "    load().get_value()\n"}},
       {{"use.go", "shapes.Config.run", "call", "exact"}},
       {{"use.go", "shapes.Parser.run", "call", "ambiguous"},
        {"use.go", "shapes.Config.get_value", "call", "ambiguous"}},
       {}},
      {"a parameter is what the repository's calls pass to it",
       {{"shapes.py", SHAPES},
        {"use.py",
         "from shapes import Config, Parser\n"
         "class Store:\n    def get(self): pass\n"
         "def apply(cfg, table, *rest, parser=None):\n"
         "    cfg.get_value()\n"
         "    table.get('a')\n"
         "    parser.parse()\n"
         "class Runner:\n"
         "    def __init__(self, config):\n"
         "        config.run()\n"
         "def go():\n"
         "    apply(Config(), {}, parser=Parser())\n"
         "    Runner(Config())\n"}},
       {{"use.apply", "shapes.Config.get_value", "call", "exact"},
        {"use.apply", "shapes.Parser.parse", "call", "exact"},
        {"use.Runner.__init__", "shapes.Config.run", "call", "exact"}},
       {{"use.apply", "use.Store.get", "call", "ambiguous"},
        {"use.Runner.__init__", "shapes.Parser.run", "call", "ambiguous"}},
       {}},
      {"attribute types: assigned in any method, from a parameter, annotated in the class body",
       {{"shapes.py", SHAPES},
        {"use.py",
         "from dataclasses import dataclass\n"
         "from shapes import Config, Parser, make_parser\n"
         "@dataclass\n"
         "class Holder:\n"
         "    config: Config\n"
         "class Service:\n"
         "    def __init__(self, config: Config):\n"
         "        self.config = config\n"
         "    def setup(self):\n"
         "        self.parser = make_parser()\n"
         "    def go(self, holder: Holder):\n"
         "        self.config.run()\n"
         "        self.parser.parse()\n"
         "        holder.config.get_value()\n"
         "        check = self.config.get_value\n"}},
       {{"use.Service.go", "shapes.Config.run", "call", "exact"},
        {"use.Service.go", "shapes.Parser.parse", "call", "exact"},
        {"use.Service.go", "shapes.Config.get_value", "call", "exact"},
        {"use.Service.go", "shapes.Config.get_value", "reference", "exact"}},
       {{"use.Service.go", "shapes.Parser.run", "call", "ambiguous"}},
       {}},
      {"methods are looked up in method resolution order",
       {{"m.py",
         "class Mixin:\n"
         "    def hook(self): pass\n"
         "class Left(Mixin):\n"
         "    pass\n"
         "class Right:\n"
         "    def hook(self): pass\n"
         "class Both(Left, Right):\n"
         "    def go(self):\n"
         "        self.hook()\n"}},
       {{"m.Both.go", "m.Mixin.hook", "call", "exact"}},
       {{"m.Both.go", "m.Right.hook", "call", "exact"}},
       {}},
  };
  for (const auto& family : families)
    testing::check_binding(family);
}

TEST(PythonBinding, GuessesModulesAndVerdicts) {
  const std::vector<testing::BindingCase> families = {
      {"a package that imports its own submodule still leads to it",
       {{"pkg/__init__.py", "from . import util\nfrom .util import helper\n"},
        {"pkg/util.py", "def helper(): pass\ndef through_package(): pass\ndef unused(): pass\n"},
        {"main.py",
         "from pkg import util\nimport pkg\n"
         "def go():\n    util.through_package()\n    pkg.util.helper()\n"}},
       {{"main.go", "pkg.util.through_package", "call", "import"},
        {"main.go", "pkg.util.helper", "call", "import"}},
       {},
       {{"pkg.util.through_package", ""}, {"pkg.util.unused", "certain"}}},
      {"obj.m() on an unknown value guesses methods only; obj.m as a value too",
       {{"a.py", "class A:\n    def refresh(self): pass\n    def notify(self): pass\n"},
        {"b.py", "def refresh(): pass\n"},
        {"c.py", "def go(x):\n    x.refresh()\n    register(x.notify)\n"}},
       {{"c.go", "a.A.refresh", "call", "ambiguous"},
        {"c.go", "a.A.notify", "reference", "ambiguous"}},
       {{"c.go", "b.refresh", "call", "ambiguous"}},
       {{"a.A.refresh", "likely"}, {"a.A.notify", "likely"}}},
      {"values from outside the repository are not guessed at",
       {{"a.py", "class Store:\n    def get(self): pass\n    def join(self): pass\n"},
        {"b.py",
         "import json\n"
         "from collections import OrderedDict\n"
         "class Settings(dict):\n    pass\n"
         "class Quiet:\n    pass\n"
         "table = json.loads('{}')\n"
         "def go(*args, **options):\n"
         "    options.get('a')\n"
         "    args.get()\n"
         "    ', '.join(args)\n"
         "    Settings().get('a')\n"
         "    OrderedDict().get('a')\n"
         "    table.get('a')\n"
         "    Quiet().__dict__.get('a')\n"
         "    local = {}\n"
         "    local.get('a')\n"
         "def unknown(x):\n"
         "    x.get()\n"}},
       {{"b.unknown", "a.Store.get", "call", "ambiguous"}},
       {{"b.go", "a.Store.get", "call", "ambiguous"},
        {"b.go", "a.Store.join", "call", "ambiguous"}},
       {}},
      {"a method bound on evidence is not reported; its namesake only guessed at is likely",
       {{"shapes.py", SHAPES},
        {"use.py",
         "from shapes import Parser\n"
         "def go(p: Parser, anything):\n"
         "    p.parse()\n"
         "    anything.get_value()\n"}},
       {},
       {},
       {{"shapes.Parser.parse", ""}, {"shapes.Config.get_value", "likely"}}},
      {"__all__ names what a star import brings in: it is used there",
       {{"pkg/__init__.py", "from .core import *\n__all__ = ['Exported', 'helper', 'missing']\n"},
        {"pkg/core.py", "class Exported: pass\ndef helper(): pass\ndef hidden(): pass\n"}},
       {{"pkg.<toplevel>", "pkg.core.Exported", "reference", "import"},
        {"pkg.<toplevel>", "pkg.core.helper", "reference", "import"}},
       {},
       {{"pkg.core.Exported", ""}, {"pkg.core.helper", ""}, {"pkg.core.hidden", "certain"}}},
      {"a stub's declarations are never dead; the module beside it is read as ever",
       {{"fast.pyi", "def speed() -> int: ...\nclass Engine:\n    def run(self) -> None: ...\n"},
        {"slow.py", "def unused(): pass\n"}},
       {},
       {},
       {{"fast.speed", ""},
        {"fast.Engine", ""},
        {"fast.Engine.run", ""},
        {"slow.unused", "certain"}}},
      {"reading an attribute of a class uses the class, unless the class reads it itself",
       {{"kinds.py",
         "from enum import Enum\nclass Color(Enum):\n    RED = 1\n"
         "class Limits:\n    MAX = 3\n    @staticmethod\n    def helper(): return 1\n"
         "class Alone:\n    SIZE = 2\n    def size(self): return Alone.SIZE\n"},
        {"use.py",
         "import kinds\nfrom kinds import Color\n"
         "def paint():\n    return Color.RED, kinds.Limits.helper(), "
         "kinds.Limits.MAX.bit_length()\n"
         "paint()\n"}},
       {{"use.paint", "kinds.Color", "reference", "import"},
        {"use.paint", "kinds.Limits", "reference", "import"},
        {"use.paint", "kinds.Limits.helper", "call", "import"}},
       {},
       {{"kinds.Color", ""}, {"kinds.Limits", ""}, {"kinds.Alone", "certain"}},
       {{"kinds.Alone.size", "kinds.Alone"}}},
      {"__subclasses__() and __init_subclass__ may use every class deriving from the class",
       {{"plug.py",
         "class Plugin:\n    @classmethod\n    def load(cls):\n"
         "        return [c() for c in cls.__subclasses__()]\n"
         "class A(Plugin): pass\nclass B(A): pass\nclass Lone: pass\n"
         "def names():\n    return Plugin.__subclasses__()\n"
         "class Registry:\n    def __init_subclass__(cls, **kw): pass\n"
         "class Handler(Registry): pass\n"}},
       {{"plug.Plugin.load", "plug.A", "reference", "ambiguous"},
        {"plug.Plugin.load", "plug.B", "reference", "ambiguous"},
        {"plug.names", "plug.A", "reference", "ambiguous"},
        {"plug.Registry.__init_subclass__", "plug.Handler", "reference", "ambiguous"}},
       {},
       {{"plug.A", ""},  // B derives from it
        {"plug.B", "likely"},
        {"plug.Lone", "certain"},
        {"plug.Handler", "likely"}}},
      {"a call of itself is no use: what only its own recursion calls is dead",
       {{"walk.py",
         "def countdown(n):\n    return countdown(n - 1) if n else 0\n"
         "def depth(n):\n    return depth(n - 1) + 1 if n else 0\n"
         "class Tree:\n"
         "    def size(self):\n        return self.size()\n"
         "    def height(self):\n        return self.height()\n"
         "def main():\n    return depth(3) + Tree().height()\n"
         "main()\n"}},
       {{"walk.main", "walk.depth", "call", "local"},
        {"walk.main", "walk.Tree.height", "call", "exact"}},
       {},
       {{"walk.countdown", "certain"},
        {"walk.depth", ""},
        {"walk.Tree.size", "certain"},
        {"walk.Tree.height", ""}},
       {{"walk.countdown", "walk.countdown"},
        {"walk.depth", "walk.depth"},
        {"walk.Tree.size", "walk.Tree.size"}}},
  };
  for (const auto& family : families)
    testing::check_binding(family);
}

TEST(PythonBinding, CodeOutsideTheRepositoryMayCallWhatItIsGiven) {
  const std::vector<testing::BindingCase> families = {
      {"a fallback defined beside an import, and a class named in a string annotation",
       {{"m.py",
         "from typing import TYPE_CHECKING\n"
         "try:\n    from fast import f\nexcept ImportError:\n    def f(): pass\n"
         "if TYPE_CHECKING:\n    class Proto: pass\n"
         "def g(x: 'Proto'):\n    f()\n"}},
       {{"m.g", "m.f", "call", "import"}, {"m.g", "m.Proto", "type", "local"}},
       {},
       {{"m.f", ""}, {"m.Proto", ""}}},
      {"an instance handed to outside code, a subclass of an outside class",
       {{"m.py",
         "import io\nimport click\n"
         "class Stream:\n    def readinto(self, b): pass\n    def _unseen(self): pass\n"
         "class Base(click.Group):\n    pass\n"
         "class Mine(Base):\n    def parse_args(self): pass\n"
         "class Root(object):\n    pass\n"
         "class Plain(Root):\n    def run(self): pass\n"
         "def reader():\n    return io.BufferedReader(Stream())\n"}},
       {{"m.reader", "m.Stream.readinto", "reference", "ambiguous"},
        {"m.Mine", "m.Mine.parse_args", "reference", "ambiguous"}},
       {{"m.reader", "m.Stream._unseen", "reference", "ambiguous"}},
       {{"m.Stream.readinto", "likely"},
        {"m.Stream._unseen", "certain"},
        {"m.Mine.parse_args", "likely"},
        {"m.Plain.run", "certain"}}},
  };
  for (const auto& family : families)
    testing::check_binding(family);

  // An instance handed out in many places is one guess per method, at the first place.
  TempTree tree(SourceTree{{"m.py",
                            "import io\n"
                            "class Stream:\n    def readinto(self, b): pass\n"
                            "def reader(s):\n"
                            "    io.BufferedReader(Stream())\n"
                            "    io.BufferedReader(s, Stream())\n"}});
  tree.index();
  Repository repo(tree.db());
  EXPECT_EQ(repo.db().fetchall("SELECT e.line FROM edges e JOIN symbols t ON t.id = e.target_id "
                               "WHERE t.fqn = 'm.Stream.readinto'"),
            (std::vector<Row>{{Value{std::int64_t{5}}}}));
}

TEST(PythonBinding, CountsHowCallsOfTheRepositorysNamesWereBound) {
  TempTree tree(SourceTree{{"m.py",
                            "class Box:\n    def get(self): pass\n    def put(self): pass\n"
                            "def helper(): pass\n"
                            "def go(x, **kw):\n"
                            "    helper()\n"         // in the repository
                            "    Box().put()\n"      // in the repository, and Box() too
                            "    kw.get('a')\n"      // a dict's, outside
                            "    x.put()\n"          // guessed
                            "    put()\n"            // unbound
                            "    x.helper(Box())\n"  // unbound (what Box() may be used for
                                                     // outside is no binding of helper)
                            "    print('a')\n"}});   // not a name defined here: not counted
  const auto summary = tree.index();
  EXPECT_EQ(summary.calls,
            (indexer::CallBindings{.in_repository = 4, .outside = 1, .guessed = 1, .unbound = 2}));
}

}  // namespace
}  // namespace quarry
