// Which files of a directory the indexer reads, and what language each is in.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quarry::indexer {

struct SourceListing {
  std::vector<std::string> files;     // relative to the root, "/" separators, sorted
  std::vector<std::string> warnings;  // what could not be listed, and why
};

// The files of `root`. In a git work tree: the files git tracks plus the untracked ones it
// does not ignore. Elsewhere: every regular file, skipping .git, virtual environments,
// node_modules, __pycache__ and build output. Symbolic links, paths under any of `skip`
// (directories relative to `root`, e.g. the index's own) and paths that one of the globs
// `exclude` selects (utils/glob.h: path_glob_match, relative to `root`) are left out
// either way. A
// directory that cannot be listed is left out with a warning; so is git's listing when
// git refuses a work tree (for example one owned by another user), in which case every
// file is walked instead and the warning says how to let git list it. Throws
// std::runtime_error when `root` is not a readable directory.
SourceListing list_source_files(const std::filesystem::path& root,
                                const std::vector<std::string>& skip = {".quarry"},
                                const std::vector<std::string>& exclude = {});

// The text of a source file, read without ever blocking: opened non-blocking and checked to
// be a regular file of at most `max_size` bytes (0: any size) before it is read. Otherwise
// `text` is empty and `problem` says why ("not a regular file", "2.5 MB, over the
// --max-file-size limit of 1 MB", or the system's reason).
struct SourceText {
  std::optional<std::string> text;
  std::string problem;
};
SourceText read_source(const std::filesystem::path& path, std::uintmax_t max_size);

// The language of a file by its extension ("python" for .py and .pyi, "markdown", "json",
// "yaml", "toml", "text", ...); "other" when the extension is not known.
std::string_view language_of(std::string_view path);

// Runs a program (looked up on PATH) with `args`, without a shell, and returns its standard
// output, or nothing when it cannot be started or exits with a non-zero status. With
// `error_output`, its standard error is collected there (else it is discarded).
std::optional<std::string> run_program(const std::vector<std::string>& args,
                                       std::string* error_output = nullptr);

}  // namespace quarry::indexer
