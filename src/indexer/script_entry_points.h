// Entry points of JavaScript and TypeScript packages: what package.json files publish or
// run, and tools' configuration files. What they export is used from outside the
// repository, so it is exported and never taken for dead code.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "indexer/python_model.h"
#include "indexer/script_modules.h"

namespace quarry::indexer {

// Whether the script file at `path` configures a tool that loads it by its name:
// `*.config.*` (vite.config.ts, jest.config.js), a dotted name (.eslintrc.js), a gulpfile or
// Gruntfile.
bool is_tool_config(std::string_view path);

// Marks as exported, in `models`, what the entry files of the repository's script packages
// export: the files that the entries of `modules.packages()` name (ScriptModules::entry_file)
// and the tools' configuration files among `paths`. The exports of an entry file are
// followed through its aliases (`export default X`, `export {a as b}`), its re-exports
// into other modules and its `export * from` modules; the public members of the classes
// so reached are marked too.
void mark_script_entry_points(const std::vector<std::string>& paths, const ScriptModules& modules,
                              std::vector<FileModel>& models);

}  // namespace quarry::indexer
