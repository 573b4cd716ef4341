#include <gtest/gtest.h>

#include <map>
#include <utility>

#include "test_index.h"

namespace quarry {
namespace {

using testing::EdgeRow;
using testing::SourceTree;
using testing::TempTree;

// Strings that name code: dotted paths, names looked up by getattr and the like, names beside
// module paths, and prefixes of dispatched method names.
TEST(PythonStrings, NamesInStringsAreUsesOfWhatTheyName) {
  struct Case {
    const char* name;
    SourceTree files;
    std::vector<EdgeRow> expected;
    std::vector<std::pair<std::string, std::string>> absent;  // no edge of any kind
    std::map<std::string, std::string> verdicts;  // dead-code confidence; "" for not listed
  };
  const std::vector<Case> cases = {
      {"dotted paths",
       {{"pkg/__init__.py", "from .impl import exported\n"},
        {"pkg/impl.py",
         "def exported(): pass\ndef joined(): pass\nclass Handler:\n    def handle(self): pass\n"},
        {"pkg/handlers.py", "def on_load(): pass\n"},
        {"app.py",
         "import importlib\nLOGGING = {'h': {'class': 'pkg.impl.Handler'}}\n"
         "APPS = ['pkg.handlers', 'pkg.nothing.here', 'pkg.impl.joined.x']\n"
         "def setup(x):\n    importlib.import_module('pkg.handlers')\n"
         "    print('joined', 'pkg.impl.Nope', f'pkg.impl.{x}')\n"
         "    return ['pkg.impl:Handler.handle', 'pkg.exported', 'pkg.impl' ':joined']\n"}},
       {{"app.<toplevel>", "pkg.impl.Handler", "reference", "exact"},
        {"app.<toplevel>", "pkg.handlers", "reference", "exact"},
        {"app.setup", "pkg.handlers", "reference", "exact"},
        {"app.setup", "pkg.impl.Handler.handle", "reference", "exact"},
        {"app.setup", "pkg.impl.exported", "reference", "exact"},
        {"app.setup", "pkg.impl.joined", "reference", "exact"}},
       {{"app.setup", "pkg.impl"}, {"app.<toplevel>", "pkg.impl.joined"}},
       {{"pkg.impl.Handler.handle", ""},
        {"pkg.impl.joined", ""},
        {"pkg.handlers.on_load", "certain"}}},
      {"names looked up on known and unknown objects",
       {{"k.py", "def finish(): pass\n"},
        {"m.py",
         "import sys\nclass Plugin:\n    def start(self):\n        getattr(self, 'stop')()\n"
         "        return hasattr(Plugin, 'reset')\n    def stop(self): pass\n    def reset(self): "
         "pass\n"
         "def run(obj):\n    getattr(obj, 'finish')()\n    globals()['helper']()\n"
         "    vars(sys.modules[__name__]).get('spare')\n    print('orphan')\n"
         "def helper(): pass\ndef spare(): pass\ndef orphan(): pass\n"
         "def probe():\n    return hasattr(sys.modules[__name__], 'finish')\n"}},
       {{"m.Plugin.start", "m.Plugin.stop", "reference", "exact"},
        {"m.Plugin.start", "m.Plugin.reset", "reference", "exact"},
        {"m.run", "k.finish", "reference", "ambiguous"},
        {"m.run", "m.helper", "reference", "exact"},
        {"m.run", "m.spare", "reference", "exact"}},
       {{"m.run", "m.orphan"}, {"m.probe", "k.finish"}},
       {{"m.Plugin.stop", ""}, {"k.finish", "likely"}, {"m.orphan", "certain"}}},
      {"guesses capped in fqn order",
       {{"g.py",
         "class Z:\n    def go(self): pass\nclass A:\n    def go(self): pass\nclass B:\n    def "
         "go(self): pass\nclass C:\n    def go(self): pass\nclass D:\n    def go(self): pass\n"
         "class E:\n    def go(self): pass\ndef call(x):\n    getattr(x, 'go')\n"}},
       {{"g.call", "g.A.go", "reference", "ambiguous"},
        {"g.call", "g.E.go", "reference", "ambiguous"}},
       {{"g.call", "g.Z.go"}},
       {}},
      {"modules from import_module",
       {{"plug/__init__.py", ""},
        {"plug/impl.py", "def build(): pass\nclass Thing: pass\n"},
        {"app.py",
         "import importlib\ndef load(path):\n    mod = importlib.import_module('plug.impl')\n"
         "    any_mod = importlib.import_module(path)\n"
         "    return (getattr(mod, 'build'), getattr(any_mod, 'Thing'),\n"
         "            getattr(importlib.import_module('plug.impl'), 'Thing'))\n"}},
       {{"app.load", "plug.impl.build", "reference", "exact"},
        {"app.load", "plug.impl.Thing", "reference", "exact"},
        {"app.load", "plug.impl.Thing", "reference", "ambiguous"}},
       {},
       {}},
      {"registry literals",
       {{"reg/impl.py", "class Handler: pass\ndef make(): pass\n"},
        {"reg/other.py", "def fallback(): pass\ndef unlisted(): pass\n"},
        {"app.py",
         "ROUTES = [('reg.impl', 'Handler'), ('reg.impl', 'fallback'), ('ext.lib', 'unlisted')]\n"
         "CONF = {'module': 'reg.impl', 'factory': 'make'}\nNAMES = ['unlisted']\n"
         "COMMANDS = {'run': Info('reg.cmds', 'RunCommand', 'Runs.'),\n"
         "            'stop': Info(module='reg.cmds', name='StopCommand')}\n"},
        {"reg/cmds.py",
         "class RunCommand: pass\nclass StopCommand: pass\nclass UnnamedCommand: pass\n"}},
       {{"app.<toplevel>", "reg.impl.Handler", "reference", "exact"},
        {"app.<toplevel>", "reg.impl.make", "reference", "exact"},
        {"app.<toplevel>", "reg.cmds.RunCommand", "reference", "exact"},
        {"app.<toplevel>", "reg.cmds.StopCommand", "reference", "exact"},
        {"app.<toplevel>", "reg.other.fallback", "reference", "ambiguous"}},
       {{"app.<toplevel>", "reg.other.unlisted"}},
       {{"reg.impl.make", ""},
        {"reg.other.fallback", "likely"},
        {"reg.other.unlisted", "certain"},
        {"reg.cmds.RunCommand", ""},
        {"reg.cmds.UnnamedCommand", "certain"}}},
      {"dispatch by prefix",
       {{"d.py",
         "import sys\nclass Base:\n    def on_open(self): pass\nclass Conn(Base):\n"
         "    def dispatch(self, event):\n        getattr(self, 'on_' + event)()\n"
         "        getattr(self, f'do_{event}')()\n        getattr(self, 'cmd_%s' % event)()\n"
         "        getattr(self, 'op_{}'.format(event))()\n        method = 'at_' + event\n"
         "        getattr(self, method)()\n        getattr(self, 'x' + event)()\n"
         "        getattr(self, '__%s__' % event)()\n"
         "    def on_close(self): pass\n    def do_it(self): pass\n    def cmd_a(self): pass\n"
         "    def op_b(self): pass\n    def at_c(self): pass\n    def xray(self): pass\n"
         "    def __len__(self): return 0\n"
         "class Other:\n    def on_other(self): pass\n"
         "class Late(Conn):\n    def on_late(self): pass\n"
         "def route(obj, name):\n    getattr(obj, 'hook_' + name)()\n"
         "    getattr(sys.modules[__name__], 'task_' + name)()\n"
         "def hook_one(): pass\ndef task_a(): pass\n"}},
       {{"d.Conn.dispatch", "d.Base.on_open", "reference", "ambiguous"},
        {"d.Conn.dispatch", "d.Conn.on_close", "reference", "ambiguous"},
        {"d.Conn.dispatch", "d.Conn.do_it", "reference", "ambiguous"},
        {"d.Conn.dispatch", "d.Conn.cmd_a", "reference", "ambiguous"},
        {"d.Conn.dispatch", "d.Conn.op_b", "reference", "ambiguous"},
        {"d.Conn.dispatch", "d.Conn.at_c", "reference", "ambiguous"},
        {"d.Conn.dispatch", "d.Late.on_late", "reference", "ambiguous"},
        {"d.route", "d.hook_one", "reference", "ambiguous"},
        {"d.route", "d.task_a", "reference", "ambiguous"}},
       {{"d.Conn.dispatch", "d.Other.on_other"},
        {"d.Conn.dispatch", "d.Conn.xray"},
        {"d.Conn.dispatch", "d.Conn.__len__"}},
       {{"d.Conn.on_close", "likely"},
        {"d.Conn.xray", "certain"},
        {"d.Other.on_other", "certain"}}},
      {"a module's whole namespace read: each of its functions and classes is guessed at",
       {{"m.py",
         "class A: pass\ndef f(): pass\nfor obj in list(globals().values()):\n    print(obj)\n"},
        {"m2.py", "class C: pass\n"},
        {"n.py",
         "import importlib, inspect\nmod = importlib.import_module('m2')\n"
         "members = inspect.getmembers(mod)\n"},
        {"o.py",
         "class K:\n    def run(self): pass\n    def dump(self):\n"
         "        return self.__dict__.items(), dir(self)\n"}},
       {{"m.<toplevel>", "m.A", "reference", "ambiguous"},
        {"m.<toplevel>", "m.f", "reference", "ambiguous"},
        {"n.<toplevel>", "m2.C", "reference", "ambiguous"}},
       {{"o.K.dump", "o.K.run"}, {"n.<toplevel>", "m.A"}},
       {{"m.A", "likely"}, {"m2.C", "likely"}, {"o.K.run", "certain"}}},
      {"a long prefix handed to a call, or found nowhere it is looked up, is looked up anywhere",
       {{"expr.py",
         "import os\nclass Expr:\n"
         "    def expand(self, hint):\n"
         "        name = '_eval_expand_' + hint\n        return self._expand_hint(name)\n"
         "    def rewrite(self, rule):\n        return self._apply(method='_eval_rewrite_%s' % "
         "rule)\n"
         "    def _expand_hint(self, name):\n        return getattr(self, name)()\n"
         "    def _apply(self, method):\n        return getattr(self, method)()\n"
         "    def save(self, kind):\n"
         "        os.path.join('/tmp', '_eval_saved_' + kind)\n"
         "        return self._apply('get_' + kind)\n"
         "class Meta(type):\n"
         "    def __init__(cls, *args):\n        getattr(cls, '_eval_is_%s' % args[0], None)\n"},
        {"funcs.py",
         "from expr import Expr\nclass Sin(Expr):\n"
         "    def _eval_expand_trig(self): pass\n    def _eval_rewrite_cos(self): pass\n"
         "    def _eval_is_real(self): pass\n    def _eval_saved_x(self): pass\n"
         "    def get_x(self): pass\n"}},
       {{"expr.Expr.expand", "funcs.Sin._eval_expand_trig", "reference", "ambiguous"},
        {"expr.Expr.rewrite", "funcs.Sin._eval_rewrite_cos", "reference", "ambiguous"},
        {"expr.Meta.__init__", "funcs.Sin._eval_is_real", "reference", "ambiguous"}},
       {{"expr.Expr.save", "funcs.Sin._eval_saved_x"}, {"expr.Expr.save", "funcs.Sin.get_x"}},
       {{"funcs.Sin._eval_expand_trig", "likely"},
        {"funcs.Sin._eval_saved_x", "certain"},
        {"funcs.Sin.get_x", "certain"}}},
  };
  for (const auto& c : cases)
    testing::check_binding({c.name, c.files, c.expected, {}, c.verdicts, c.absent});
}

}  // namespace
}  // namespace quarry
