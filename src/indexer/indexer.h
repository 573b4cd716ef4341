// Builds the index of a repository: lists its files, parses its Python, JavaScript and
// TypeScript files in parallel, binds their names across files and writes the index
// database in one go.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "indexer/python_model.h"

namespace quarry::indexer {

// Source files larger than this are listed but not parsed: generated code and data files
// cost time and memory out of all proportion to what they tell.
inline constexpr std::uintmax_t DEFAULT_MAX_FILE_SIZE = 4 * 1024 * 1024;

// The phases of a run, in order, as IndexOptions::progress names them.
inline constexpr std::string_view PHASE_LISTING = "listing files";
inline constexpr std::string_view PHASE_PARSING = "parsing";
inline constexpr std::string_view PHASE_RESOLVING = "resolving";
inline constexpr std::string_view PHASE_WRITING = "writing";

struct IndexOptions {
  std::filesystem::path root;                            // the repository
  std::string db_path;                                   // where the index goes
  unsigned threads = 0;                                  // parsing threads; 0: one per core
  std::uintmax_t max_file_size = DEFAULT_MAX_FILE_SIZE;  // in bytes; 0: no limit
  // Called from the calling thread now and then in every phase, with the phase (one of
  // PHASE_*), how much of it is done and its total (files; 0 while the listing has not
  // ended). Each phase reports done == total once, when it ends.
  std::function<void(std::string_view phase, std::size_t done, std::size_t total)> progress;
  // Called once when another run holds the index's lock; the run then waits for it.
  std::function<void()> waiting;
  // Recorded in the index's meta table; left out when empty.
  std::string quarry_version;
  // Path globs (utils/glob.h: path_glob_match), relative to `root`, of files that are not
  // indexed at all.
  std::vector<std::string> exclude;
  // Fully qualified names of definitions that are used from outside, as the entry points
  // of packaging files are: they are exported. One that names nothing is a warning.
  std::vector<std::string> entry_points;
};

// For tests only: when set, called by the parsing and resolving workers with the file each
// is about to work on, to make a fault there (by throwing). Set it before build_index.
extern std::function<void(std::string_view phase, const std::string& path)> worker_fault_for_tests;

struct IndexSummary {
  std::size_t files = 0;
  std::size_t python_files = 0;
  std::size_t script_files = 0;  // JavaScript and TypeScript
  std::size_t symbols = 0;
  std::size_t edges = 0;
  std::size_t pending_references = 0;
  // How the call sites of names the repository defines were bound.
  CallBindings calls;
  double seconds = 0;
  // One per file that could not be read whole, and per directory left out of the listing:
  // "PATH:LINE: MESSAGE" where a line is known (the first syntax error), else
  // "PATH: MESSAGE".
  std::vector<std::string> warnings;
};

// Writes the index of `options.root` to `options.db_path`, as IndexTarget describes: only
// a missing file or an index is replaced, one run at a time, through a temporary file of
// its own renamed into place when complete, so a failed, interrupted or killed run leaves
// the previous index as it was and no temporary file behind (a killed run's is removed by
// the next). The index's own files and `.quarry/` are never listed; another directory of
// the tree that holds the index is left out with a warning. A file that cannot be read or
// parsed, or is over the size limit, is still listed, with what could be read, and named
// in a warning.
// The index's meta table records the root (absolute, lexically normal), the quarry and
// schema versions, the time, and HEAD's commit when the root is in a git work tree. When
// the index is in a directory named `.quarry`, a `.gitignore` ignoring all but
// `baseline.json` is written there unless one exists, so that git never shows the index's
// files but does show a baseline to commit.
// Throws std::runtime_error (or DatabaseError) when the root cannot be listed or the index
// cannot be written. What a parsing or resolving worker throws ends the run and is thrown
// here, as "PATH: cannot be indexed: MESSAGE": a std::runtime_error for a runtime error, a
// std::logic_error for any other fault (std::bad_alloc as it is).
IndexSummary build_index(const IndexOptions& options);

}  // namespace quarry::indexer
