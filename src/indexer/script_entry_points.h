// Entry points of JavaScript and TypeScript packages: what package.json files publish or
// run, and tools' configuration files. What they export is used from outside the
// repository, so it is exported and never taken for dead code.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "indexer/python_model.h"
#include "indexer/script_modules.h"

namespace quarry::indexer {

// The files, relative to the package's directory as written, that the package.json `text`
// names as entry points: `main`, `module`, `browser`, `types`, `typings`, `bin` (a path or
// an object of them), every path in `exports` (nested conditions included), and the script
// files its `scripts` run (words ending in a script extension). A file that does not parse
// names none and adds the warning "PATH: MESSAGE" (with `path`) to `warnings`. Never throws
// for bad input.
std::vector<std::string> read_package_entries(std::string_view path, std::string_view text,
                                              std::vector<std::string>& warnings);

// Whether the script file at `path` configures a tool that loads it by its name:
// `*.config.*` (vite.config.ts, jest.config.js), a dotted name (.eslintrc.js), a gulpfile or
// Gruntfile.
bool is_tool_config(std::string_view path);

// Marks as exported, in `models`, what the entry files of the repository's script packages
// export: the files that the package.json files among `paths` (relative to `root`) name,
// each looked up from its package's directory as an import of "./FILE" is (and, when the
// file is built output that is not in the repository, under src/ or the package's
// directory without the output directories it starts with: dist/cjs/index.js as
// src/index.ts), and the tools' configuration files. The exports of an entry
// file are followed through its aliases (`export default X`, `export {a as b}`) and its
// `export * from` modules. A package.json that cannot be read (or is over `max_file_size`
// bytes; 0: any size) or parsed is skipped with a warning. Returns the warnings.
std::vector<std::string> mark_script_entry_points(const std::filesystem::path& root,
                                                  const std::vector<std::string>& paths,
                                                  std::uintmax_t max_file_size,
                                                  const ScriptModules& modules,
                                                  std::vector<FileModel>& models);

}  // namespace quarry::indexer
