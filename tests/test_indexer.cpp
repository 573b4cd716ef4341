#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <set>
#include <thread>

#include "indexer/indexer.h"
#include "indexer/source_files.h"
#include "storage/repository_quality.h"
#include "test_index.h"

namespace quarry {
namespace {

namespace fs = std::filesystem;
using testing::EdgeRow;
using testing::edges_of;
using testing::SourceTree;
using testing::TempTree;

// No warning when `prefix` is empty, else exactly one, starting with `prefix`.
void expect_warning(const std::vector<std::string>& warnings, const std::string& prefix) {
  if (prefix.empty()) {
    EXPECT_EQ(warnings, std::vector<std::string>{});
  } else {
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_TRUE(warnings[0].starts_with(prefix)) << warnings[0];
  }
}

TEST(Indexer, BindsNamesByTheirScopeAndImports) {
  struct Case {
    const char* name;
    SourceTree files;
    std::vector<EdgeRow> expected, absent = {};
    std::set<std::string> pending = {};
  };
  const std::vector<Case> cases = {
      {"local",
       {{"m.py", "def f(): pass\ndef g():\n    f()\n"}},
       {{"m.g", "m.f", "call", "local"}}},
      {"import",
       {{"a.py", "def f(): pass\n"}, {"b.py", "from a import f\ndef g():\n    f()\n"}},
       {{"b.g", "a.f", "call", "import"}, {"b.<toplevel>", "a.f", "import", "import"}}},
      {"relative import",
       {{"pkg/__init__.py", ""},
        {"pkg/a.py", "def f(): pass\n"},
        {"pkg/sub/b.py", "from ..a import f\nfrom .. import a\ndef g():\n    f()\n    a.f()\n"}},
       {{"pkg.sub.b.g", "pkg.a.f", "call", "import"}}},
      {"aliased module",
       {{"pkg/a.py", "def f(): pass\n"}, {"b.py", "import pkg.a as m\ndef g():\n    m.f()\n"}},
       {{"b.g", "pkg.a.f", "call", "import"}, {"b.<toplevel>", "pkg.a", "import", "import"}}},
      {"re-export through a package",
       {{"pkg/__init__.py", "from .impl import f\n"},
        {"pkg/impl.py", "def f(): pass\n"},
        {"b.py", "from pkg import f\ndef g():\n    f()\n"}},
       {{"b.g", "pkg.impl.f", "call", "import"}}},
      {"self method, base-class method, super and Class.method",
       {{"m.py",
         "class B:\n    def base(self): pass\n    def run(self): pass\n    @staticmethod\n"
         "    def make(): pass\nclass C(B):\n    def run(self):\n        self.b()\n"
         "        self.base()\n        super().run()\n        B.make()\n    def b(self): pass\n"}},
       {{"m.C.run", "m.C.b", "call", "exact"},
        {"m.C.run", "m.B.base", "call", "exact"},
        {"m.C.run", "m.B.run", "call", "exact"},
        {"m.C.run", "m.B.make", "call", "exact"},
        {"m.C", "m.B", "inherits", "local"}}},
      {"ambiguous attribute call",
       {{"a.py", "class A:\n    def run(self): pass\n"},
        {"b.py", "class B:\n    def run(self): pass\n"},
        {"c.py", "def go(x):\n    x.run()\n    x.nothing_named_so()\n"}},
       {{"c.go", "a.A.run", "call", "ambiguous"}, {"c.go", "b.B.run", "call", "ambiguous"}}},
      {"reference, decorator, annotation; pending names, builtins ignored",
       {{"m.py",
         "def deco(f): return f\nclass T: pass\ndef cb(): pass\n"
         "@deco\ndef h(x: T) -> T:\n    register(cb)\n    print(len(x))\n"}},
       {{"m.h", "m.deco", "decorates", "local"},
        {"m.h", "m.T", "type", "local"},
        {"m.h", "m.cb", "reference", "local"}},
       {},
       {"register"}},
      {"instance made by calling a class",
       {{"m.py",
         "class K:\n    def run(self): pass\nclass L:\n    def run(self): pass\n"
         "k = K()\ndef g():\n    x = K()\n    x.run()\n    k.run()\n"}},
       {{"m.g", "m.K.run", "call", "exact"}},
       {{"m.g", "m.L.run", "call", "ambiguous"}}},
      {"local variable shadows a function",
       {{"m.py", "def f(): pass\ndef g(f):\n    f()\n"}},
       {},
       {{"m.g", "m.f", "call", "local"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempTree tree(c.files);
    tree.index();
    Repository repo(tree.db());
    const auto edges = edges_of(repo);
    for (const auto& [source, target, kind, resolution] : c.expected)
      EXPECT_TRUE(edges.contains({source, target, kind, resolution})) << source << " -> " << target;
    for (const auto& [source, target, kind, resolution] : c.absent)
      EXPECT_FALSE(edges.contains({source, target, kind, resolution})) << target;
    EXPECT_EQ(testing::pending_of(repo), c.pending);
  }
}

TEST(Indexer, NamesSignaturesAndExports) {
  TempTree tree(SourceTree{{"src/pkg/mod.py",
                            "__all__ = ['public']\nLIMIT = 3\ndef public(): pass\n"
                            "def outer():\n    def inner(): pass\n"
                            "@app.route('/x',\n           methods=['GET'])\n"
                            "def index(a,\n          b): pass\n"
                            "class C(Base):\n    X = 1\n    y: int = 2\n    def m(self): pass\n"}});
  tree.index();
  Repository repo(tree.db());
  const std::vector<std::tuple<std::string, std::string, std::optional<std::string>, bool>>
      expected = {
          {"pkg.mod", "module", std::nullopt, false},
          {"pkg.mod.LIMIT", "constant", std::nullopt, false},
          {"pkg.mod.public", "function", "def public():", true},
          {"pkg.mod.outer.inner", "function", "def inner():", false},
          {"pkg.mod.index", "function",
           "@app.route('/x', methods=['GET']) def index(a, b):", false},
          {"pkg.mod.C", "class", "class C(Base):", false},
          {"pkg.mod.C.X", "constant", std::nullopt, false},
          {"pkg.mod.C.y", "variable", std::nullopt, false},
          {"pkg.mod.C.m", "method", "def m(self):", false},
      };
  for (const auto& [fqn, kind, signature, is_export] : expected) {
    const auto symbol = repo.get_symbol_by_fqn(fqn);
    ASSERT_TRUE(symbol) << fqn;
    EXPECT_EQ(std::tie(symbol->kind, symbol->signature, symbol->is_export),
              std::tie(kind, signature, is_export))
        << fqn;
  }
  const auto component = repo.db().fetchone(
      "SELECT c.name FROM files f JOIN components c ON c.id = f.component_id WHERE f.path = ?",
      {std::string("src/pkg/mod.py")});
  ASSERT_TRUE(component);
  EXPECT_EQ(to_text(component->at(0)), "src.pkg");
}

// What packaging files declare as entry points is exported: `exported` lists it (and the
// re-exports it is reached through); `dead` lists siblings that stay dead code.
TEST(Indexer, EntryPointsOfPackagingFilesAreExports) {
  struct Case {
    const char* name;
    SourceTree files;
    std::vector<std::string> exported, dead;
    std::string warning = {};
  };
  const std::string cli =
      "def go(): pass\ndef go2(): pass\ndef go3(): pass\ndef go4(): pass\ndef go5(): pass\n"
      "def spare(): pass\n";
  const std::vector<Case> cases = {
      {"pyproject: scripts, gui-scripts, entry-points, poetry scripts and plugins",
       {{"pyproject.toml",
         "[project.scripts]\nt = \"app.cli:go\"\n[project.gui-scripts]\n"
         "g = \"app.ui:Win.show [qt]\"\n[project.entry-points.\"pytest11\"]\n"
         "p = \"app.cli:go2\"\nm = \"app\"\n[tool.poetry.scripts]\na = \"app.cli:go3\"\n"
         "b = { callable = \"app.cli:go4\" }\nc = { reference = \"app.cli:spare\", type = \"file\" "
         "}\n"
         "[tool.poetry.plugins.\"flake8.extension\"]\nX = \"app.cli:go5\"\n"},
        {"app/cli.py", cli},
        {"app/ui.py", "class Win:\n    def show(self): pass\n    def hide(self): pass\n"}},
       {"app.cli.go", "app.cli.go2", "app.cli.go3", "app.cli.go4", "app.cli.go5",
        "app.ui.Win.show"},
       {"app.cli.spare", "app.ui.Win.hide"}},
      {"setup.cfg",
       {{"setup.cfg",
         "[other]\ngroup =\n    s = app.cli:spare\n[options.entry_points]\nconsole_scripts =\n"
         "    t = app.cli:go\n    # u = app.cli:spare\n\n    v = app.cli:go2 [x]\n"
         "gui_scripts = g = app.cli:go3\n"},
        {"app/cli.py", cli}},
       {"app.cli.go", "app.cli.go2", "app.cli.go3"},
       {"app.cli.spare"}},
      {"setup.py",
       {{"setup.py",
         "# 't = app.cli:spare'\nsetup(description='n = app.cli:spare and more',\n"
         "      entry_points={'console_scripts': [\"t = app.cli:go\", 'u=app.cli:go2[x]']},\n"
         "      scripts='''\n[gui_scripts]\ng = app.cli:go3\n''')\n"},
        {"app/cli.py", cli}},
       {"app.cli.go", "app.cli.go2", "app.cli.go3"},
       {"app.cli.spare"}},
      {"src layout and subproject directories",
       {{"pyproject.toml", "[project.scripts]\nt = \"app.cli:go3\"\n"},
        {"src/app/cli.py", cli},
        {"tools/one/pyproject.toml", "[project.scripts]\nt = \"app.cli:go\"\n"},
        {"tools/one/src/app/cli.py", cli},
        {"tools/two/setup.cfg", "[options.entry_points]\nx =\n  t = app.cli:go2\n"},
        {"tools/two/app/cli.py", cli}},
       {"app.cli.go3", "tools.one.src.app.cli.go", "tools.two.app.cli.go2"},
       {"tools.one.src.app.cli.go2", "tools.two.app.cli.go", "app.cli.go", "app.cli.go2"}},
      {"re-exports",
       {{"pyproject.toml",
         "[project.scripts]\nt = \"app:go\"\nu = \"app:Tool.run\"\nv = \"app:go2\"\n"},
        {"app/__init__.py",
         "from .cli import go\nfrom app.tool import Tool\nfrom .more import *\n"},
        {"app/cli.py", cli},
        {"app/tool.py", "class Tool:\n    def run(self): pass\n    def stop(self): pass\n"},
        {"app/more.py", "from .cli import go2\n"}},
       {"app.go", "app.cli.go", "app.Tool", "app.tool.Tool.run", "app.more.go2", "app.cli.go2"},
       {"app.cli.spare", "app.tool.Tool.stop"}},
      {"malformed pyproject.toml",
       {{"pyproject.toml", "[project.scripts]\nt = \"app.cli:go\n"}, {"app/cli.py", cli}},
       {},
       {"app.cli.go"},
       "pyproject.toml:2: "},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempTree tree(c.files);
    expect_warning(tree.index().warnings, c.warning);
    Repository repo(tree.db());
    std::set<std::string> listed;
    for (const auto& symbol : repo.get_dead_code({.limit = 1000}).symbols)
      listed.insert(symbol.fqn);
    for (const auto& fqn : c.exported) {
      const auto symbol = repo.get_symbol_by_fqn(fqn);
      ASSERT_TRUE(symbol) << fqn;
      EXPECT_TRUE(symbol->is_export) << fqn;
    }
    for (const auto& fqn : c.dead) {
      const auto symbol = repo.get_symbol_by_fqn(fqn);
      ASSERT_TRUE(symbol) << fqn;
      EXPECT_TRUE(listed.contains(fqn)) << fqn << " not listed as dead";
    }
  }
}

// Runs `list` as the user "nobody" in a child process and returns what it printed, for
// what root is never refused; nothing when this process cannot change its user.
std::optional<std::string> as_nobody(const std::function<std::string()>& list) {
  if (geteuid() != 0) return std::nullopt;
  int fds[2];
  if (pipe(fds) != 0) return std::nullopt;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    std::string text = setgid(65534) == 0 && setuid(65534) == 0 ? list() : "cannot setuid";
    const ssize_t written = write(fds[1], text.data(), text.size());
    _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
  }
  close(fds[1]);
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(fds[0], buffer, sizeof buffer)) > 0;)
    text.append(buffer, static_cast<std::size_t>(n));
  close(fds[0]);
  waitpid(pid, nullptr, 0);
  return text;
}

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines)
    text += line + "\n";
  return text;
}

// Skipped: what holds no code (build/ and dist/ unless packages of the project), what git
// ignores, and the directory that holds the index. What is left out is named: a directory
// that cannot be listed, a work tree that git refuses, the directory of the index.
TEST(Indexer, ListingSkipsWhatHoldsNoCodeAndNamesWhatItLeavesOut) {
  TempTree tree;
  for (const char* path :
       {"a.py", "node_modules/x.js", ".venv/lib/y.py", "env2/pyvenv.cfg", "env2/lib/z.py",
        "pkg/__pycache__/a.pyc", "pkg/b.py", "pkg/old.db", "build/out.py", "dist/pkg/__init__.py",
        "ops/build/__init__.py", "ops/dist/__init__.py", ".quarry/index.db", "secret/c.py"})
    tree.write(path, "");
  const std::string listed = "a.py\nops/build/__init__.py\nops/dist/__init__.py\npkg/b.py\n";
  EXPECT_EQ(joined(indexer::list_source_files(tree.root()).files),
            listed + "pkg/old.db\nsecret/c.py\n");
  const auto summary =
      indexer::build_index({.root = tree.root(), .db_path = (tree.root() / "pkg/idx.db").string()});
  EXPECT_EQ(summary.warnings,
            std::vector<std::string>{"pkg/: left out (2 files), since it holds the index; keep "
                                     "the index in .quarry/ or outside the tree to index them"});
  EXPECT_EQ(Repository((tree.root() / "pkg/idx.db").string()).get_stats().at("files"), 4);

  fs::permissions(tree.root() / "secret", fs::perms::owner_all);
  fs::permissions(tree.root(), fs::perms::all);
  const auto unlisted = as_nobody([&] {
    const auto listing = indexer::list_source_files(tree.root());
    return joined(listing.files) + joined(listing.warnings);
  });
  if (unlisted) {
    EXPECT_EQ(*unlisted, listed +
                             "pkg/idx.db\npkg/old.db\n"
                             "secret/: cannot be listed (Permission denied); left out\n");
  }

  const std::string root = tree.root().string();
  if (!indexer::run_program({"git", "-C", root, "init", "-q"})) GTEST_SKIP() << "no git";
  tree.write(".gitignore", "*/\nignored.py\n");
  tree.write("ignored.py", "");
  tree.write("untracked.py", "");
  tree.write("build/tracked.py", "");
  ASSERT_TRUE(indexer::run_program({"git", "-C", root, "add", "-f", "a.py", "build/tracked.py"}));
  EXPECT_EQ(joined(indexer::list_source_files(tree.root()).files),
            ".gitignore\na.py\nbuild/tracked.py\nuntracked.py\n");
  if (!unlisted) GTEST_SKIP() << "needs root to list as another user";
  ASSERT_EQ(lchown(root.c_str(), 65534, 65534), 0);
  const auto refused = indexer::list_source_files(tree.root());
  ASSERT_EQ(refused.warnings.size(), 1u);
  EXPECT_NE(refused.warnings[0].find("git will not list this work tree"), std::string::npos);
  EXPECT_NE(refused.warnings[0].find("git config --global --add safe.directory " + root),
            std::string::npos)
      << refused.warnings[0];
  EXPECT_NE(joined(refused.files).find("pkg/old.db\n"), std::string::npos);
}

// Each source that cannot be read whole warns with its name: what does not parse or decode
// is indexed as far as it reads; what is too large, or no regular file, is skipped.
TEST(Indexer, BadOrTooLargeSourcesAreNamedInWarnings) {
  TempTree tree(SourceTree{{"good.py", "def f(): pass\n"},
                           {"broken.py", "def ok(): pass\ndef broken(:\n"},
                           {"latin1.py", "def caf\xe9(): pass\ndef fine(): pass\n"},
                           {"big.py", std::string(2048, '#') + "\ndef hidden(): pass\n"},
                           {"notes.txt", "hello"}});
  const fs::path fifo = tree.root() / "fifo.py";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0644), 0);
  // A FIFO where a source was listed, with no writer: reading it must not block.
  auto read = std::async(std::launch::async, [&] { return indexer::read_source(fifo, 0); });
  ASSERT_EQ(read.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_EQ(read.get().problem, "not a regular file");
  fs::remove(fifo);

  const auto summary =
      indexer::build_index({.root = tree.root(), .db_path = tree.db(), .max_file_size = 1024});
  EXPECT_EQ(std::tie(summary.files, summary.python_files), std::tuple(5u, 4u));
  std::set<std::string> named;
  for (const std::string& warning : summary.warnings)
    named.insert(warning.substr(0, warning.find(':')));
  EXPECT_EQ(named, (std::set<std::string>{"big.py", "broken.py", "latin1.py"}));
  for (const std::string warning :
       {"latin1.py: not valid UTF-8; indexed what could be read",
        "big.py: not indexed: 2.0 KiB, over the --max-file-size limit of 1.0 KiB"}) {
    EXPECT_NE(std::find(summary.warnings.begin(), summary.warnings.end(), warning),
              summary.warnings.end())
        << warning;
  }
  Repository repo(tree.db());
  EXPECT_EQ(repo.get_stats().at("files"), 5);
  EXPECT_TRUE(repo.get_symbol_by_fqn("broken.ok") && repo.get_symbol_by_fqn("latin1.fine"));
  EXPECT_FALSE(repo.get_symbol_by_fqn("big.hidden"));
}

// Syntax of current Python versions reads without errors, with the calls inside it: what
// the grammar knows, and what is read around its gaps (type parameter defaults, except
// lists without parentheses, t-strings). A declared encoding (or a UTF-8 byte order mark)
// is decoded before parsing, keeping the lines where they were; what cannot be decoded is
// read as far as it can be, with a warning.
TEST(Indexer, ReadsCurrentSyntaxInTheDeclaredEncoding) {
  // A non-ASCII literal, then a definition named with e acute (given in the file's
  // encoding) and f, its caller, on line `line_of_f` of the file.
  const auto cafe = [](const std::string& e_acute, const std::string& literal) {
    return "s = '" + literal + "'\ndef caf" + e_acute + "(): pass\ndef f():\n    caf" + e_acute +
           "()\n";
  };
  const EdgeRow f_calls_cafe{"m.f", "m.caf\xc3\xa9", "call", "local"};
  struct Case {
    std::string name, source;
    EdgeRow expected = {"m.f", "m.g", "call", "local"};
    std::string warning = {};
    std::int64_t line_of_f = 0;  // 0: not checked
  };
  const std::vector<Case> cases = {
      {"except*", "def f():\n    try:\n        pass\n    except* ValueError as e:\n        g()\n"},
      {"except *", "def f():\n    try:\n        pass\n    except *TypeError:\n        g()\n"},
      {"type alias",
       "class K: pass\ntype Alias[T] = dict[K, T]\n",
       {"m.<toplevel>", "m.K", "type", "local"}},
      {"generic function", "def f[T: int, *Ts, **P](x: T) -> T:\n    return g()\n"},
      {"generic class",
       "class C[T]:\n    def f(self):\n        g()\n",
       {"m.C.f", "m.g", "call", "local"}},
      {"match",
       "def f(x):\n    match x:\n        case [1, *r] | {'k': r}:\n            pass\n"
       "        case P(x=0) as p if p:\n            g()\n"},
      {"nested f-strings", "def f(d):\n    return f\"{d[\"k\"]!r:>{w}} {f\"{g()}\"}\"\n"},
      {"walrus", "def f():\n    if (n := g()) > 1:\n        return n\n"},
      {"decorator expression", "def f():\n    @(lambda fn: g() or fn)\n    def inner(): pass\n"},
      {"type parameter default", "def f[T = int, *Ts = *tuple[int]](x: T):\n    g()\n"},
      {"except list", "def f():\n    try:\n        pass\n    except A, B, C:\n        g()\n"},
      {"t-strings", "def f():\n    return t\"{x}\" + rt'{t\"{g()}\"}'\n"},
      {"latin-1", "# -*- coding: latin-1 -*-\n" + cafe("\xe9", "\xa3\xbf"), f_calls_cafe, "", 4},
      {"cp1252 on line 2",
       "#!/usr/bin/env python\n# vim: set fileencoding=cp1252 :\n" + cafe("\xe9", "\x80 \x93"),
       f_calls_cafe, "", 5},
      {"utf-8 with a BOM", "\xef\xbb\xbf" + cafe("\xc3\xa9", "\xe2\x82\xac"), f_calls_cafe, "", 3},
      {"utf-8 declared", "# coding=utf-8\n" + cafe("\xc3\xa9", "\xe2\x82\xac"), f_calls_cafe, "",
       4},
      {"unknown encoding", "# coding: klingon\n" + cafe("\xc3\xa9", "\xe2\x82\xac"), f_calls_cafe,
       "m.py: unknown encoding \"klingon\"", 4},
      {"undecodable byte", "# coding: cp1252\n" + cafe("\xe9", "\x81"), f_calls_cafe,
       "m.py: not valid cp1252", 4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempTree tree(SourceTree{{"m.py", c.source + "def g(): pass\n"}});
    expect_warning(tree.index().warnings, c.warning);
    Repository repo(tree.db());
    EXPECT_TRUE(edges_of(repo).contains(c.expected));
    if (c.line_of_f != 0) {
      EXPECT_EQ(repo.get_symbol_by_fqn("m.f")->start_line, c.line_of_f);
    }
  }
}

// The files beside the index that are not the index itself or its .gitignore: temporary
// and lock files.
std::vector<std::string> leftovers(const TempTree& tree) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(fs::path(tree.db()).parent_path())) {
    const std::string name = entry.path().filename().string();
    if (name != "index.db" && name != ".gitignore") names.push_back(name);
  }
  return names;
}

// Two runs on one index never mix their files; one killed while it writes leaves the
// previous index whole and its temporary file to the other, which removes it; a query at
// any moment sees a whole index.
TEST(Indexer, ConcurrentAndKilledRunsLeaveOnlyWholeIndexes) {
  TempTree tree;
  // Large enough that a run takes a while: 1000 files in 30 packages.
  std::string text;
  for (int f = 0; f < 20; ++f) {
    const std::string n = std::to_string(f);
    text += "def f" + n + "(x):\n    return g" + n + "(x) + helper(x)\n";
  }
  for (int i = 0; i < 1000; ++i)
    tree.write("pkg" + std::to_string(i % 30) + "/m" + std::to_string(i) + ".py", text);
  tree.index();
  // Starts a run and returns once it writes its temporary file (or has ended).
  const auto start_writing = [&] {
    const pid_t pid = testing::start_quarry({"index", tree.root().string()});
    bool writing = false;
    for (int waited = 0; pid > 0 && waited < 120000 && !writing; ++waited) {
      for (const std::string& name : leftovers(tree))
        writing = writing || name.starts_with("index.db.tmp-");
      if (!writing) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return std::pair{pid, writing};
  };
  const auto [killed, caught] = start_writing();
  ASSERT_GT(killed, 0);
  const pid_t waiting = testing::start_quarry({"index", tree.root().string()});
  ASSERT_GT(waiting, 0);
  kill(killed, SIGKILL);
  waitpid(killed, nullptr, 0);
  ASSERT_TRUE(caught) << "the run ended before it was caught writing";
  int status = 0, queries = 0;
  for (bool done = false; !done; ++queries) {
    done = waitpid(waiting, &status, WNOHANG) == waiting;
    const auto stats = Repository(tree.db()).get_stats();
    EXPECT_EQ(stats.at("files") * 100 + stats.at("symbols"), 1000 * 100 + 1000 * 22);
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  EXPECT_GT(queries, 1);
  EXPECT_EQ(leftovers(tree), std::vector<std::string>{});

  // An interrupted run removes its own files on the way out.
  const auto [interrupted, writing] = start_writing();
  ASSERT_TRUE(writing);
  kill(interrupted, SIGTERM);
  ASSERT_EQ(waitpid(interrupted, &status, 0), interrupted);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_EQ(leftovers(tree), std::vector<std::string>{});
}

// Only a missing file or an index is replaced; whatever else is named stays as it was.
// Temporary files of killed runs go; a run waits while another holds the lock.
TEST(Indexer, ReplacesOnlyAnIndexAndLeavesNoTemporaryFile) {
  TempTree tree(SourceTree{{"a.py", "def f(): pass\n"}, {"notes.txt", "my notes\n"}});
  testing::TestIndex index, foreign;
  index.close();
  foreign.execute("DROP TABLE files; DROP TABLE symbols; DROP TABLE edges");
  foreign.close();
  tree.write("out/empty.db", "");
  fs::create_directories(tree.root() / "out" / "dir.db");
  fs::create_symlink(tree.root() / "notes.txt", tree.root() / "out" / "link.db");
  const std::string out = (tree.root() / "out").string();
  const std::vector<std::pair<std::string, std::string>> cases = {
      // The index, and why it is refused ("": replaced).
      {(tree.root() / "notes.txt").string(), "not a quarry index"},
      {out + "/empty.db", "not a quarry index"},
      {out + "/dir.db", "not a regular file"},
      {out + "/link.db", "a symbolic link"},
      {foreign.path(), "not a quarry index"},
      {index.path(), ""},
      {out + "/new/index.db", ""},
  };
  for (const auto& [db, refusal] : cases) {
    SCOPED_TRACE(db);
    const std::string before = fs::is_regular_file(db) ? testing::file_bytes(db) : "";
    std::ofstream(db + ".tmp-k1ll3d") << "half";  // left by runs that were killed
    std::ofstream(db + ".tmp") << "half";
    try {
      indexer::build_index({.root = tree.root(), .db_path = db});
      EXPECT_EQ(refusal, "");
      EXPECT_EQ(Repository(db).get_stats().at("symbols"), 3);
      EXPECT_FALSE(fs::exists(db + ".tmp-k1ll3d") || fs::exists(db + ".tmp"));
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string(error.what()).find(db + ": " + refusal), std::string::npos)
          << error.what();
      EXPECT_NE(refusal, "");
      if (fs::is_regular_file(db)) {
        EXPECT_EQ(testing::file_bytes(db), before);
      }
    }
    fs::remove(db + ".tmp-k1ll3d");
    fs::remove(db + ".tmp");
    EXPECT_FALSE(fs::exists(db + ".lock"));
  }
  const int held = open((index.path() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  bool waited = false;
  indexer::build_index({.root = tree.root(), .db_path = index.path(), .waiting = [&] {
                          waited = close(held) == 0;
                        }});
  EXPECT_TRUE(waited);
  // A run that fails after it has begun writing leaves no temporary file either.
  EXPECT_THROW(indexer::build_index({.root = tree.root() / "nowhere", .db_path = out + "/f.db"}),
               std::runtime_error);
  EXPECT_EQ(std::distance(fs::directory_iterator(out), fs::directory_iterator()), 4);
}

}  // namespace
}  // namespace quarry
