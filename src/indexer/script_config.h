// What a repository's package.json and tsconfig.json files tell about its scripts: its
// packages, their entry points, and how specifiers that are no relative paths resolve.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "indexer/script_modules.h"

namespace quarry::indexer {

// The package that the package.json at `path` (relative to the root) declares in `text`:
// its directory, name, workspaces, and as entries the files that `main`, `module`,
// `browser`, `types`, `typings`, `bin` (a path or an object of them) and every path of
// `exports` (nested conditions included) name, then the script files that its `scripts`
// run (words ending in a script extension); `exports` subpaths ("./utils") with the first
// file each names. Patterns with "*" are left out. A file that does not parse declares a
// package with no entries and adds "PATH: not valid JSON; its entry points are not read" to
// `warnings`. Never throws for bad input.
ScriptPackage read_package(std::string_view path, std::string_view text,
                           std::vector<std::string>& warnings);

// The module resolution that the tsconfig.json or jsconfig.json at `path` (relative to the
// root) sets for the files under its directory: `compilerOptions.baseUrl` and `paths`, made
// relative to the root, with what it does not set taken from the configurations it
// `extends` (relative paths only; at most 8 deep), which `read(path)` gives the text of
// (nothing when it cannot be read). Comments and trailing commas are allowed, as
// TypeScript allows them. A file that does not parse sets nothing and adds a warning.
ScriptPathMapping read_tsconfig(
    std::string_view path, std::string_view text,
    const std::function<std::optional<std::string>(const std::string&)>& read,
    std::vector<std::string>& warnings);

struct ScriptConfig {
  std::vector<ScriptPackage> packages;
  std::vector<ScriptPathMapping> mappings;
  std::vector<std::string> warnings;
};

// Reads every package.json, tsconfig.json and jsconfig.json among `paths` (relative to
// `root`; files outside node_modules are listed only) that is at most `max_file_size`
// bytes (0: any size). A file that cannot be read is left out with a warning.
ScriptConfig read_script_config(const std::filesystem::path& root,
                                const std::vector<std::string>& paths,
                                std::uintmax_t max_file_size);

}  // namespace quarry::indexer
