// Fixture projects in JavaScript and TypeScript, one per module system, with the edges each
// must give and the dead-code verdicts that follow from them; and the resolution of import
// specifiers to files.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "indexer/script_config.h"
#include "indexer/script_entry_points.h"
#include "indexer/script_modules.h"
#include "storage/repository.h"
#include "test_index.h"

namespace quarry {
namespace {

using indexer::ScriptModules;

TEST(ScriptModules, SpecifiersResolveAsNodeAndTypeScriptInferThem) {
  const ScriptModules modules(
      {"src/a.ts", "src/b.js", "src/b.ts", "src/c/index.tsx", "src/d.js", "src/e.d.ts", "lib/f.mts",
       "top.js", "lib/g.js", "lib/g.d.ts", "lib/h.d.ts"},
      {});
  const struct {
    std::string importer;
    std::string specifier;
    std::optional<std::string> file;
  } cases[] = {
      {"src/x.ts", "./a", "src/a.ts"},                 // extension inferred
      {"src/x.ts", "./a.js", "src/a.ts"},              // written for the built file
      {"src/x.ts", "./b.js", "src/b.ts"},              // the source beside its output wins
      {"src/x.ts", "./b", "src/b.ts"},                 // TypeScript before JavaScript
      {"src/x.ts", "./c", "src/c/index.tsx"},          // a directory's index
      {"src/x.ts", "./d.js", "src/d.js"},              // no source: the file itself
      {"src/x.ts", "./e", "src/e.d.ts"},               // declarations last
      {"src/x.ts", "../lib/g.js", "lib/g.js"},         // the file a declaration describes
      {"src/x.ts", "../lib/h.js", "lib/h.d.ts"},       // only the declaration is there
      {"src/x/y.ts", "../../lib/f.mjs", "lib/f.mts"},  // climbing, .mjs for .mts
      {"src/x.ts", "../top", "top.js"},
      {"src/x.ts", "../../outside", std::nullopt},  // above the root
      {"src/x.ts", "react", std::nullopt},          // a package
      {"src/x.ts", "./missing", std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(modules.resolve(c.importer, c.specifier), c.file) << c.importer << " " << c.specifier;
  }
  // Module names: the path without its extension, unless another file has that name.
  EXPECT_EQ(modules.module_of("src/a.ts"), "src/a");
  EXPECT_EQ(modules.module_of("src/b.js"), "src/b");
  EXPECT_EQ(modules.module_of("src/b.ts"), "src/b.ts");
  EXPECT_EQ(modules.module_for("src/x.ts", "react"), "npm:react");
  const ScriptModules beside_python({"tool.js"}, {"tool"});
  EXPECT_EQ(beside_python.module_of("tool.js"), "tool.js");
}

TEST(ScriptConfig, PackageAndTsconfigFilesAreRead) {
  std::vector<std::string> warnings;
  const indexer::ScriptPackage package = indexer::read_package(
      "packages/ui/package.json",
      R"({"name": "@org/ui", "main": "./dist/index.js", "module": "esm/index.mjs",
          "types": "index.d.ts", "bin": {"tool": "bin/tool.js"},
          "exports": {".": {"import": "./esm/index.mjs", "require": "./cjs/index.cjs"},
                      "./button": "./src/button.tsx", "./utils/*": "./src/utils/*.js"},
          "scripts": {"build": "node scripts/build.mjs --fast && tsc", "lint": "eslint ."}})",
      warnings);
  EXPECT_EQ(package.directory, "packages/ui");
  EXPECT_EQ(package.name, "@org/ui");
  EXPECT_EQ(package.entries,
            (std::vector<std::string>{"./dist/index.js", "esm/index.mjs", "index.d.ts",
                                      "bin/tool.js", "./esm/index.mjs", "./cjs/index.cjs",
                                      "./src/button.tsx", "scripts/build.mjs"}));
  EXPECT_EQ(package.subpaths,
            (std::vector<std::pair<std::string, std::string>>{{"./button", "./src/button.tsx"}}));
  EXPECT_TRUE(warnings.empty());
  EXPECT_TRUE(indexer::read_package("p/package.json", "{", warnings).entries.empty());
  EXPECT_EQ(
      warnings,
      (std::vector<std::string>{"p/package.json: not valid JSON; its entry points are not read"}));

  // A tsconfig with comments and trailing commas, extending a base for its paths.
  const std::map<std::string, std::string> files = {
      {"tsconfig.base.json",
       R"({"compilerOptions": {"baseUrl": ".", "paths": {"@lib/*": ["libs/*/src"]}}})"},
  };
  const auto read = [&](const std::string& path) -> std::optional<std::string> {
    auto it = files.find(path);
    if (it == files.end()) return std::nullopt;
    return it->second;
  };
  warnings.clear();
  const indexer::ScriptPathMapping app = indexer::read_tsconfig(
      "apps/web/tsconfig.json",
      "// the web app\n{\"extends\": \"../../tsconfig.base\",\n"
      " \"compilerOptions\": {\"baseUrl\": \"src\", /* local */ \"strict\": true,},}",
      read, warnings);
  EXPECT_EQ(app.directory, "apps/web");
  EXPECT_EQ(app.base_url, "apps/web/src");
  EXPECT_EQ(
      app.paths,
      (std::vector<std::pair<std::string, std::vector<std::string>>>{{"@lib/*", {"libs/*/src"}}}));
  EXPECT_TRUE(warnings.empty());

  for (const char* config :
       {"vite.config.ts", "app/jest.config.js", ".eslintrc.cjs", "gulpfile.js"})
    EXPECT_TRUE(indexer::is_tool_config(config)) << config;
  for (const char* other : {"src/config.ts", "config.json", "src/configure.js"})
    EXPECT_FALSE(indexer::is_tool_config(other)) << other;
}

TEST(ScriptModules, PackagesAndPathMappingsResolveBareSpecifiers) {
  indexer::ScriptPackage ui{
      "packages/ui", "@org/ui", {"./dist/index.js"}, {{"./button", "./src/button.tsx"}}, false};
  indexer::ScriptPackage cli{"tools/cli", "cli", {"bin/run.js"}, {}, false};
  // Built entries in nested output directories, named by another extension than the source's.
  indexer::ScriptPackage core{
      "pkgs/core", "@q/core", {"./build/modern/index.js", "./build/legacy/index.d.cts"}, {}, false};
  // Entries that name nothing in the repository: its index file stands for them.
  indexer::ScriptPackage bare{"pkgs/bare", "bare", {"./gone.js"}, {}, false};
  indexer::ScriptPathMapping web{
      "apps/web", "apps/web/src", {{"@lib/*", {"libs/*/src"}}, {"config", {"apps/web/config.ts"}}}};
  const ScriptModules modules(
      {"packages/ui/src/index.ts", "packages/ui/src/button.tsx", "packages/ui/src/theme.ts",
       "tools/cli/bin/run.js", "libs/auth/src/index.ts", "apps/web/src/pages/home.tsx",
       "apps/web/config.ts", "pkgs/core/src/index.ts", "pkgs/bare/index.js"},
      {}, {ui, cli, core, bare}, {web});
  const struct {
    std::string importer;
    std::string specifier;
    std::optional<std::string> file;
  } cases[] = {
      {"apps/web/src/main.ts", "@org/ui", "packages/ui/src/index.ts"},  // built entry -> src
      {"apps/web/src/main.ts", "@org/ui/button", "packages/ui/src/button.tsx"},   // exports subpath
      {"apps/web/src/main.ts", "@org/ui/src/theme", "packages/ui/src/theme.ts"},  // a path inside
      {"apps/web/src/main.ts", "@org/uikit", std::nullopt},                       // another package
      {"apps/web/src/main.ts", "cli", "tools/cli/bin/run.js"},
      {"apps/web/src/main.ts", "@q/core", "pkgs/core/src/index.ts"},
      {"apps/web/src/main.ts", "bare", "pkgs/bare/index.js"},
      {"apps/web/src/main.ts", "@lib/auth", "libs/auth/src/index.ts"},        // paths pattern
      {"apps/web/src/main.ts", "config", "apps/web/config.ts"},               // exact pattern
      {"apps/web/src/main.ts", "pages/home", "apps/web/src/pages/home.tsx"},  // baseUrl
      {"tools/cli/bin/run.js", "pages/home", std::nullopt},  // outside its tsconfig
      {"apps/web/src/main.ts", "node:fs", std::nullopt},
      {"apps/web/src/main.ts", "react", std::nullopt},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(modules.resolve(c.importer, c.specifier), c.file) << c.importer << " " << c.specifier;
  }
  EXPECT_EQ(modules.entry_files(core),
            (std::vector<std::string>{"pkgs/core/src/index.ts", "pkgs/core/src/index.ts"}));
  EXPECT_EQ(modules.entry_files(bare), std::vector<std::string>{"pkgs/bare/index.js"});
  ASSERT_NE(modules.package_of("packages/ui/src/theme.ts"), nullptr);
  EXPECT_EQ(modules.package_of("packages/ui/src/theme.ts")->name, "@org/ui");
  EXPECT_EQ(modules.package_of("libs/auth/src/index.ts"), nullptr);
}

TEST(ScriptBinding, ModuleSystemsBindAcrossFiles) {
  const std::vector<testing::BindingCase> families = {
      {"ES modules: named, default, namespace and re-exported imports; unused exports",
       {{"package.json", R"({"name": "esm", "main": "src/index.js"})"},
        {"src/index.js",
         "import { parse as read, parsers } from './parse.js';\n"
         "import render from './render';\n"
         "import * as util from './util/index.js';\n"
         "export { format } from './format';\n"
         "export * from './extra';\n"
         "export function main(text) {\n"
         "  return render(read(text), util.clean(parsers.json(text)));\n"
         "}\n"
         "const later = () => import('./lazy').then((m) => m.page());\n"
         "async function awaited() { const m = await import('./awaited'); return m.now(); }\n"
         "const table = { run() {} };\n"
         "later(awaited(table[0]()));\n"},
        {"src/lazy.js", "export function page() {}\n"},
        {"src/awaited.js", "export function now() {}\nexport function never() {}\n"},
        {"src/parse.js",
         "export function parse(t) { return t; }\nexport function unusedParse() {}\n"
         "export const parsers = { json(t) { return t; }, csv: (t) => t };\n"},
        {"src/render.js", "export default function render(x) { return x; }\n"},
        {"src/util/index.js",
         "export const clean = (t) => t.trim();\nexport function helper() {}\n"},
        {"src/format.js", "export function format() {}\n"},
        {"src/extra.js", "export function extra() {}\nfunction hidden() {}\n"}},
       {{"src/index.main", "src/parse.parse", "call", "import"},
        {"src/index.main", "src/render.render", "call", "import"},
        {"src/index.main", "src/util/index.clean", "call", "import"},
        {"src/index.main", "src/parse.parsers.json", "call", "import"},
        {"src/index.<toplevel>", "src/format.format", "import", "import"},
        {"src/index.<toplevel>", "src/extra", "import", "import"},
        {"src/index.later", "src/lazy.page", "reference", "import"},
        {"src/index.awaited", "src/awaited.now", "call", "import"}},
       {},
       {{"src/index.main", ""},     // the package's entry exports it
        {"src/format.format", ""},  // re-exported from the entry
        {"src/extra.extra", ""},    // exported through `export *` of the entry
        {"src/extra.hidden", "certain"},
        {"src/parse.unusedParse", "certain"},
        {"src/parse.parsers.csv", "certain"},
        {"src/parse.parsers.json", ""},
        {"src/util/index.helper", "certain"},
        {"src/lazy.page", ""},  // what import() loads may be used
        {"src/awaited.never", "certain"},
        {"src/index.table.run", ""}}},  // an object the module keeps to itself
      {"CommonJS: require of a module, of its exports and of its module.exports value",
       {{"lib/cli.js",
         "const path = require('path');\n"
         "const store = require('./store');\n"
         "const { slugify } = require('./text');\n"
         "const Runner = require('./runner');\n"
         "new Runner().run(slugify(path.join('a')), store.load());\n"
         "const Legacy = require('./legacy');\nLegacy.create().start();\n"
         "require('./text').slugify('b');\nrequire('./single')();\nrequire('./env');\n"},
        {"lib/env.js",
         "exports.init = init;\nfunction init() {}\nfunction spare() {}\n"
         "module.exports = require('./setup')(exports);\n"},
        {"lib/setup.js", "module.exports = (env) => env;\n"},
        {"lib/lazy.js",
         "const memo = (f) => f;\nmodule.exports = memo(() => require('./cached'));\n"
         "require('./effects');\n"},
        {"lib/cached.js", "module.exports = class Cached {};\n"},
        {"lib/effects.js", "module.exports = function sideEffect() {};\n"},
        {"lib/single.js",
         "function countdown(n) { return n > 0 ? countdown(n - 1) : 0; }\n"
         "module.exports = function single() { return 1; };\n"},
        {"lib/legacy.js",
         "function Legacy() {}\nLegacy.prototype.start = function () { return this.tick(); };\n"
         "Legacy.prototype.tick = function () {};\n"
         "Legacy.create = function () { return new Legacy(); };\nmodule.exports = Legacy;\n"},
        {"lib/store.js",
         "function load() { return 1; }\nfunction save() {}\nmodule.exports = { load, save };\n"},
        {"lib/text.js",
         "exports.slugify = function (s) { return s; };\nexports.unused = (s) => s;\n"},
        {"lib/runner.js",
         "class Runner {\n  run() { return this.step(); }\n  step() {}\n  idle() {}\n}\n"
         "module.exports = Runner;\n"}},
       {{"lib/cli.<toplevel>", "lib/store.load", "call", "import"},
        {"lib/cli.<toplevel>", "lib/text.slugify", "call", "import"},
        {"lib/cli.<toplevel>", "lib/runner.Runner", "call", "import"},
        {"lib/cli.<toplevel>", "lib/runner.Runner.run", "call", "exact"},
        {"lib/runner.Runner.run", "lib/runner.Runner.step", "call", "exact"},
        {"lib/cli.<toplevel>", "lib/legacy.Legacy.create", "call", "import"},
        {"lib/legacy.Legacy.start", "lib/legacy.Legacy.tick", "call", "exact"},
        {"lib/cli.<toplevel>", "lib/single.single", "call", "import"}},
       {},
       {{"lib/store.save", "certain"},
        {"lib/text.unused", "certain"},
        {"lib/runner.Runner.idle", "certain"},
        {"lib/runner.Runner.step", ""},
        {"lib/single.countdown", "certain"},  // only calls itself
        {"lib/env.init", ""},                 // the exports object is handed to setup
        {"lib/env.spare", "certain"},
        {"lib/cached.Cached", ""},                // what a require gives, returned
        {"lib/effects.sideEffect", "certain"}}},  // required for its effects alone
      {"TypeScript: receivers typed by annotations, parameter properties, new and return types",
       {{"src/repo.ts",
         "export interface Store { get(id: string): Item; flush(): void; }\n"
         "export type Item = { id: string };\n"
         "const log = (target: object, key: string) => {};\n"
         "export class Repo implements Store {\n"
         "  get(id: string): Item { return { id }; }\n"
         "  @log\n"
         "  drop(): void {}\n"
         "}\n"
         "export class Cache { get(id: string) { return id; } }\n"
         "export class Memory implements Store { flush() {} }\n"
         "export function lookup(s: Store) { return s.flush(); }\n"
         "export function makeRepo(): Repo { return new Repo(); }\n"},
        {"src/service.ts",
         "import { Repo, makeRepo } from './repo';\n"
         "import type { Item } from './repo';\n"
         "const sealed = (target: object) => target;\n"
         "@sealed\n"
         "export class Service {\n"
         "  private other = makeRepo();\n"
         "  constructor(private readonly repo: Repo) {}\n"
         "  find(id: string): Item { this.other.drop(); return this.repo.get(id); }\n"
         "}\n"
         "export function run(s: Service) { return s.find('x'); }\n"
         "run(new Service(new Repo()));\n"},
        {"src/level.ts",
         "enum Level { Low, High }\nenum Unread { A }\n"
         "export function pick() { return Level.High; }\n"}},
       {{"src/service.Service.find", "src/repo.Repo.get", "call", "exact"},
        {"src/service.Service.find", "src/repo.Repo.drop", "call", "exact"},
        {"src/service.run", "src/service.Service.find", "call", "exact"},
        {"src/service.Service.find", "src/repo.Item", "type", "import"},
        {"src/service.<toplevel>", "src/repo.Item", "type", "import"},
        {"src/repo.Repo", "src/repo.Store", "implements", "local"},
        {"src/repo.Repo.drop", "src/repo.log", "decorates", "local"},
        {"src/service.Service", "src/service.sealed", "decorates", "local"}},
       {{"src/service.Service.find", "src/repo.Cache.get", "call", "ambiguous"}},
       {{"src/repo.Cache", "certain"},
        {"src/repo.Repo.get", ""},
        {"src/repo.Memory.flush", ""},  // implements a member of Store
        {"src/service.Service", ""},
        {"src/level.Level", ""},  // a member of it is read
        {"src/level.Unread", "certain"}}},
      {"JSX: components used as elements, host elements ignored, globals unbound",
       {{"src/App.jsx",
         "import { Button } from './Button';\n"
         "import * as Icons from './icons';\n"
         "export function App() {\n"
         "  console.log(window.location);\n"
         "  return <div><Button label='x' /><Icons.Star /></div>;\n"
         "}\n"
         "App();\n"},
        {"src/Button.jsx", "export const Button = (props) => <button>{props.label}</button>;\n"},
        {"src/icons.jsx", "export function Star() { return null; }\nexport function Moon() {}\n"}},
       {{"src/App.App", "src/Button.Button", "reference", "import"},
        {"src/App.App", "src/icons.Star", "reference", "import"}},
       {},
       {{"src/icons.Moon", "certain"}, {"src/Button.Button", ""}}},
      {"TypeScript with paths: an alias and baseUrl lead into the repository",
       {{"tsconfig.json",
         R"({"compilerOptions": {"baseUrl": "src", "paths": {"@core/*": ["core/*"]}}})"},
        {"src/core/clock.ts", "export function now() { return 1; }\nexport function later() {}\n"},
        {"src/app/main.ts",
         "import { now } from '@core/clock';\nimport { greet } from 'app/greet';\n"
         "greet(now());\n"},
        {"src/app/greet.ts", "export const greet = (n: number) => n;\n"}},
       {{"src/app/main.<toplevel>", "src/core/clock.now", "call", "import"},
        {"src/app/main.<toplevel>", "src/app/greet.greet", "call", "import"}},
       {},
       {{"src/core/clock.later", "certain"}, {"src/core/clock.now", ""}}},
      {"a namespace import handed on as a value: any of its exports may be read from it",
       {{"src/fmt/index.ts", "export * from './date';\nexport function money() {}\n"},
        {"src/fmt/date.ts", "export function day() {}\nfunction hidden() {}\n"},
        {"src/main.ts",
         "import * as fmt from './fmt';\nfunction configure(o: object) {}\n"
         "configure({ fmt });\n"}},
       {{"src/main.<toplevel>", "src/fmt/date.day", "reference", "import"}},
       {},
       {{"src/fmt/date.day", ""}, {"src/fmt/index.money", ""}, {"src/fmt/date.hidden", "certain"}}},
      {"a mixed repository: Python and TypeScript in one index, each bound in its own",
       {{"server/api.py",
         "def handler():\n    return helper()\n\ndef helper():\n    return 1\n"
         "\ndef unused():\n    pass\n\nhandler()\n"},
        {"web/api.ts", "export function helper() { return 1; }\nexport function unused() {}\n"},
        {"web/main.ts", "import { helper } from './api';\nhelper();\n"}},
       {{"server.api.handler", "server.api.helper", "call", "local"},
        {"web/main.<toplevel>", "web/api.helper", "call", "import"}},
       {},
       {{"server.api.unused", "certain"}, {"web/api.unused", "certain"}, {"web/api.helper", ""}},
       {{"server.api.handler", "web/api.helper"}}},
      {"a workspace monorepo: packages import each other by name",
       {{"package.json", R"({"private": true, "workspaces": ["packages/*"]})"},
        {"packages/core/package.json",
         R"({"name": "@acme/core", "main": "dist/index.js", "exports": {".": "./dist/index.js",
             "./math": "./dist/math.js"}})"},
        {"packages/core/src/index.ts",
         "export { add } from './math';\nexport function internal() {}\nfunction unused() {}\n"},
        {"packages/core/src/math.ts",
         "export const add = (a: number, b: number) => a + b;\n"
         "export function mul() {}\n"},
        {"packages/app/package.json", R"({"name": "@acme/app", "bin": "src/cli.ts"})"},
        {"packages/app/src/cli.ts",
         "import { add } from '@acme/core';\nimport * as math from '@acme/core/math';\n"
         "add(1, 2);\nmath.mul();\n"}},
       {{"packages/app/src/cli.<toplevel>", "packages/core/src/math.add", "call", "import"},
        {"packages/app/src/cli.<toplevel>", "packages/core/src/math.mul", "call", "import"}},
       {},
       {{"packages/core/src/index.internal", ""},  // the package's entry exports it
        {"packages/core/src/index.unused", "certain"},
        {"packages/core/src/math.add", ""}}},
      {"a class the entry exports: its public members are public, its private and protected "
       "ones are not (signatures long enough to live apart from their record)",
       {{"package.json", R"({"name": "store", "main": "src/index.ts"})"},
        {"src/index.ts",
         "export class Store {\n  public loadEveryRecord(path: string): void {}\n"
         "  private compactEveryRecordNow(limit: number): void {}\n"
         "  protected rebuildTheIndexesFromScratch(): void {}\n}\n"}},
       {},
       {},
       {{"src/index.Store.loadEveryRecord", ""},
        {"src/index.Store.compactEveryRecordNow", "certain"},
        {"src/index.Store.rebuildTheIndexesFromScratch", "certain"}}},
  };
  for (const auto& family : families)
    testing::check_binding(family);
}

TEST(ScriptBinding, WorkspacePackagesAreComponents) {
  testing::TempTree tree(testing::SourceTree{
      {"package.json", R"({"workspaces": ["packages/*"]})"},
      {"packages/core/package.json", R"({"name": "@acme/core", "main": "src/index.ts"})"},
      {"packages/core/src/index.ts", "export const one = 1;\n"},
      {"packages/nameless/package.json", "{}"},
      {"packages/nameless/lib/a.js", "module.exports = 1;\n"},
      {"tools/b.js", "module.exports = 2;\n"}});
  tree.index();
  Repository repo(tree.db());
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"packages/core/src/index.ts", "@acme/core"},
      {"packages/nameless/lib/a.js", "packages/nameless"},
      {"tools/b.js", "tools"}};
  for (const auto& [path, component] : expected) {
    const auto rows = repo.db().fetchall(
        "SELECT c.name FROM files f JOIN components c ON c.id = f.component_id WHERE f.path = ?",
        {path});
    ASSERT_EQ(rows.size(), 1u) << path;
    EXPECT_EQ(to_text(rows[0][0]), component) << path;
  }
}

TEST(ScriptBinding, UnboundNamesAreGlobalsNotPendingReferences) {
  testing::TempTree tree(testing::SourceTree{
      {"a.ts", "console.log(process.argv);\nfetch('x').then(r => r.json());\n"}});
  tree.index();
  Repository repo(tree.db());
  EXPECT_TRUE(testing::pending_of(repo).empty());
}

// The bundled example reads as its README says.
TEST(ScriptBinding, StorefrontExample) {
  const std::filesystem::path root =
      testing::copy_example_project("quarry_storefront", "storefront");
  const testing::CliResult indexed = testing::run_cli({"index", root.string()});
  ASSERT_EQ(indexed.status, 0) << indexed.err;
  Repository repo((root / ".quarry" / "index.db").string());
  std::map<std::string, std::string> listed;
  for (const UnusedSymbol& symbol : repo.get_dead_code({.limit = 100}).symbols)
    listed[symbol.fqn] = std::string(to_string(symbol.confidence));
  EXPECT_EQ(listed, (std::map<std::string, std::string>{{"src/cart.Cart.clear", "certain"},
                                                        {"src/discount.discountFor", "certain"},
                                                        {"src/format.legacyFormat", "certain"},
                                                        {"src/render.unmount", "certain"},
                                                        {"src/ui/Button.IconButton", "certain"}}));
  const auto cycles = repo.find_circular_dependencies("file");
  ASSERT_EQ(cycles.size(), 1u);
  EXPECT_EQ(cycles[0].nodes, (std::vector<std::string>{"src/cart.ts", "src/discount.ts"}));
  // Callers of Cart.total, through a receiver typed by `new` and by an annotation; what
  // changing it affects, up to App's own caller (start, through JSX: a reference, no call).
  const auto total = repo.get_symbol_by_fqn("src/cart.Cart.total");
  ASSERT_TRUE(total && total->id);
  std::vector<std::string> callers;
  for (const Caller& caller : repo.callers_of({*total->id}))
    callers.push_back(caller.fqn + " " + caller.resolution);
  EXPECT_EQ(callers,
            (std::vector<std::string>{"src/App.App exact", "src/discount.discountFor exact"}));
  const ImpactAnalysis impact = repo.analyze_impact("src/cart.Cart.total");
  EXPECT_EQ(impact.affected_files, (std::vector<std::string>{"src/App.tsx", "src/discount.ts"}));
  EXPECT_TRUE(impact.transitive_callers.empty());
  std::filesystem::remove_all(root);
}

}  // namespace
}  // namespace quarry
