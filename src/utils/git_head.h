// The commit a git work tree has checked out, read from the repository's files: no git
// program is run, so it is cheap enough for every query.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quarry {

// The git directory of the work tree that holds `start` (a directory or a file in one):
// the first `.git` found from `start` upward, either a directory or a file reading
// "gitdir: PATH" (linked work trees, submodules; PATH relative to the file's directory or
// absolute). Nothing when no `.git` is found, or the first one found is not usable.
// Never throws.
std::optional<std::filesystem::path> find_git_dir(const std::filesystem::path& start);

// The full hexadecimal name (lower case) of the commit HEAD names in the work tree that
// holds `start`: HEAD itself when detached, else the branch it names, read from its loose
// ref file or from `packed-refs`, in the git directory or, for a linked work tree, in the
// common directory its `commondir` file names. Nothing outside a work tree, in a repository
// without commits, or for any layout it cannot read (reftable refs, say). Never throws and
// never blocks on odd files (only regular files are read).
std::optional<std::string> git_head_commit(const std::filesystem::path& start);

}  // namespace quarry
