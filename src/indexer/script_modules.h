// Where the imports of JavaScript and TypeScript files lead: module names for their files,
// and the file an import specifier names.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quarry::indexer {

// The grammar a script file is parsed with, by its extension.
enum class ScriptDialect { javascript, typescript, tsx };

// The dialect of a file at `path` when it is a JavaScript or TypeScript file (.js .mjs .cjs
// .jsx, .ts .mts .cts .tsx, .d.ts among them).
std::optional<ScriptDialect> script_dialect_of(std::string_view path);

// Whether `path` is a TypeScript declaration file (.d.ts, .d.mts, .d.cts): read for its
// types and exports, never reported.
bool is_declaration_file(std::string_view path);

// `path` (relative, "/" separators) with "." and ".." segments and empty ones folded;
// nothing when it climbs above the root.
std::optional<std::string> normalized(std::string_view path);

// The module name of a script file: its path without the extension ("src/ui/button" for
// "src/ui/button.tsx", "types/api.d" for "types/api.d.ts"). Script module names always hold
// the path's directories with "/", so they never meet a Python module's dotted name unless
// the file is at the top of the tree; ScriptModules makes those apart.
std::string script_module_name_of(std::string_view path);

// A package of the repository: a directory with a package.json.
struct ScriptPackage {
  std::string directory;  // relative to the root, "" for the root
  std::string name;       // its "name", or empty
  // The files its package.json names as entry points, as written (relative to
  // `directory`): main, module, types, bin, exports, the scripts' files.
  std::vector<std::string> entries;
  // Its `exports` subpaths ("./utils") with the first file each names ("./src/utils.js").
  std::vector<std::pair<std::string, std::string>> subpaths;
  bool workspaces = false;  // it declares workspaces

  bool operator==(const ScriptPackage&) const = default;
};

// How a tsconfig.json (with what it extends) resolves the specifiers of the files under its
// directory that are no relative paths.
struct ScriptPathMapping {
  std::string directory;                // relative to the root, "" for the root
  std::optional<std::string> base_url;  // `baseUrl`, relative to the root
  // `paths`: each pattern ("@app/*", "config") with its targets, relative to the root.
  std::vector<std::pair<std::string, std::vector<std::string>>> paths;

  bool operator==(const ScriptPathMapping&) const = default;
};

// The script files of a repository and the module name each is known by, for resolving
// import specifiers. Read-only once made: safe to share between threads.
class ScriptModules {
 public:
  // `paths` are the script files (relative, "/" separators); `taken` the module names of
  // other files (Python modules) that a script's name must not repeat. A file whose name is
  // taken, by those or by an earlier script file (button.js beside button.ts), is known by
  // its whole path instead. `packages` and `mappings` are the repository's packages and
  // tsconfig files, as script_config.h reads them.
  ScriptModules(const std::vector<std::string>& paths, const std::vector<std::string>& taken,
                std::vector<ScriptPackage> packages = {},
                std::vector<ScriptPathMapping> mappings = {});

  // The module name of the script file at `path` (one of the paths given).
  const std::string& module_of(const std::string& path) const;

  // The path of the file that `specifier`, as imported by the file at `importer`, names:
  //  - a relative specifier ("./x", "../lib/y.js") with the extension or "/index" inferred
  //    the way Node and TypeScript infer them (".js" written for a ".ts" source too);
  //  - a specifier that the `paths` or `baseUrl` of the nearest tsconfig.json above the
  //    importer maps to such a path;
  //  - the name of a package of the repository ("@org/ui", "@org/ui/button"): the file its
  //    `exports`, `main`, `module` or `types` names, or the subpath under its directory.
  // A file named as built output that is not in the repository is looked up as its source
  // (entry_file). Nothing for any other package or a file outside the repository.
  std::optional<std::string> resolve(std::string_view importer, std::string_view specifier) const;

  // The file that `entry`, a path that package.json of `package` names, is: the file itself
  // with the inference of relative specifiers, or when it is built output not in the
  // repository (dist/cjs/index.js), its source: the same path without the output
  // directories it starts with, under src/ or the package's directory.
  std::optional<std::string> entry_file(const ScriptPackage& package, std::string_view entry) const;

  // The files that the entries of `package` name (entry_file), in the order written; when
  // none is found, its index file, or that of its src/ directory.
  std::vector<std::string> entry_files(const ScriptPackage& package) const;

  // The repository's packages, as given.
  const std::vector<ScriptPackage>& packages() const { return packages_; }

  // The package that the file at `path` belongs to (the nearest directory above it with a
  // package.json), if any.
  const ScriptPackage* package_of(std::string_view path) const;

  // The module name of what `specifier` names from `importer`: resolve's file's module, or,
  // for anything outside the repository, a name no file has ("npm:" and the specifier), so
  // that what it binds is known to be external.
  std::string module_for(std::string_view importer, std::string_view specifier) const;

 private:
  std::optional<std::string> resolve_path(std::string_view path) const;
  std::optional<std::string> resolve_mapped(std::string_view importer,
                                            std::string_view specifier) const;
  std::optional<std::string> resolve_package(std::string_view specifier) const;

  std::unordered_map<std::string, std::string> modules_;  // path -> module name
  std::vector<ScriptPackage> packages_;
  std::vector<ScriptPathMapping> mappings_;
};

}  // namespace quarry::indexer
