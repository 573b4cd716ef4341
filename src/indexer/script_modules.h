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

// The module name of a script file: its path without the extension ("src/ui/button" for
// "src/ui/button.tsx", "types/api.d" for "types/api.d.ts"). Script module names always hold
// the path's directories with "/", so they never meet a Python module's dotted name unless
// the file is at the top of the tree; ScriptModules makes those apart.
std::string script_module_name_of(std::string_view path);

// The script files of a repository and the module name each is known by, for resolving
// import specifiers. Read-only once made: safe to share between threads.
class ScriptModules {
 public:
  // `paths` are the script files (relative, "/" separators); `taken` the module names of
  // other files (Python modules) that a script's name must not repeat. A file whose name is
  // taken, by those or by an earlier script file (button.js beside button.ts), is known by
  // its whole path instead.
  ScriptModules(const std::vector<std::string>& paths, const std::vector<std::string>& taken);

  // The module name of the script file at `path` (one of the paths given).
  const std::string& module_of(const std::string& path) const;

  // The path of the file that `specifier`, as imported by the file at `importer`, names: a
  // relative specifier ("./x", "../lib/y.js") with the extension or "/index" inferred the way
  // Node and TypeScript infer them (".js" written for a ".ts" source too). Nothing for a
  // package name or a file outside the repository.
  std::optional<std::string> resolve(std::string_view importer, std::string_view specifier) const;

  // The module name of what `specifier` names from `importer`: resolve's file's module, or,
  // for anything outside the repository, a name no file has ("npm:" and the specifier), so
  // that what it binds is known to be external.
  std::string module_for(std::string_view importer, std::string_view specifier) const;

 private:
  std::unordered_map<std::string, std::string> modules_;  // path -> module name
};

}  // namespace quarry::indexer
