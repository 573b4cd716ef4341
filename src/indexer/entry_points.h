// Entry points that packaging files declare outside Python: the console and GUI scripts and
// the plugin entry points of pyproject.toml, setup.cfg and setup.py. What they name is run
// from outside the repository, so it is exported and never taken for dead code.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "indexer/python_model.h"

namespace quarry::indexer {

// An entry point `module:attr.sub [extras]`: the module as written and the attribute path.
struct EntryPoint {
  std::string module;
  std::vector<std::string> attributes;  // never empty

  bool operator==(const EntryPoint&) const = default;
};

// The entry points that the packaging file at `path` (relative, "/" separators) declares in
// `text`, in the order written; none when its name is not pyproject.toml, setup.cfg or
// setup.py. Read are, in pyproject.toml: [project.scripts], [project.gui-scripts], every
// group of [project.entry-points], [tool.poetry.scripts] (strings, or tables with a
// `callable` or a non-file `reference`) and every group of [tool.poetry.plugins]; in
// setup.cfg: the groups of [options.entry_points]; in setup.py: every line of a string
// literal of the form `name = module:attr`. Values that name only a module, or that are not
// dotted Python names, are left out. A pyproject.toml that does not parse declares none and
// adds the warning "PATH:N: MESSAGE" to `warnings`. Never throws for bad input.
std::vector<EntryPoint> read_entry_points(std::string_view path, std::string_view text,
                                          std::vector<std::string>& warnings);

// Reads the packaging files among `paths` (relative to `root`) and marks as exported, in
// `models`, the definitions their entry points name. A module is looked up relative to the
// packaging file's directory, directly or under its src/, by the names that module_name_of
// gives; the attribute path then names a definition of it (`main`, `Class.method`). A name
// that an import binds there (a re-export) is marked and followed, through further
// re-exports and star imports and a bounded number of hops, to what it binds, which is
// marked too. Module symbols are never marked, and entry points naming nothing among
// `models` are ignored. A packaging file that cannot be read (or is over `max_file_size`
// bytes; 0: any size) or parsed is skipped with a warning. Returns the warnings.
std::vector<std::string> mark_entry_points(const std::filesystem::path& root,
                                           const std::vector<std::string>& paths,
                                           std::uintmax_t max_file_size,
                                           std::vector<FileModel>& models);

// Marks as exported, in `models`, the definitions that the fully qualified names `fqns`
// name, as mark_entry_points does for what packaging files declare: `app.cli.main` is
// `main` of module app.cli (else `cli.main` of module app, the longest module first), and
// re-exports are followed the same way. A name of a module is accepted and marks nothing.
// Returns a warning for each name that is not a dotted Python name or names nothing in
// `models`; such names are otherwise ignored.
std::vector<std::string> mark_configured_entry_points(const std::vector<std::string>& fqns,
                                                      std::vector<FileModel>& models);

}  // namespace quarry::indexer
