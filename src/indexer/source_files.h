// Which files of a directory the indexer reads, and what language each is in.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::indexer {

// The files of `root`, as paths relative to it with "/" separators, sorted. In a git work
// tree: the files git tracks plus the untracked ones it does not ignore. Elsewhere: every
// regular file, skipping .git, virtual environments, node_modules, __pycache__ and build
// output. Symbolic links and paths under `skip` (relative to `root`, e.g. the index's own
// directory) are left out either way. Throws std::runtime_error when `root` is not a
// readable directory.
std::vector<std::string> list_source_files(const std::filesystem::path& root,
                                           const std::string& skip = ".quarry");

// The language of a file by its extension ("python" for .py and .pyi, "markdown", "json",
// "yaml", "toml", "text", ...); "other" when the extension is not known.
std::string_view language_of(std::string_view path);

// Runs a program (looked up on PATH) with `args`, without a shell, and returns its standard
// output, or nothing when it cannot be started or exits with a non-zero status.
std::optional<std::string> run_program(const std::vector<std::string>& args);

}  // namespace quarry::indexer
