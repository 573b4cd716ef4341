// Builds the index of a repository: lists its files, parses its Python files in parallel,
// binds their names across files and writes the index database in one go.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "indexer/python_model.h"

namespace quarry::indexer {

// Source files larger than this are listed but not parsed: generated code and data files
// cost time and memory out of all proportion to what they tell.
inline constexpr std::uintmax_t DEFAULT_MAX_FILE_SIZE = 4 * 1024 * 1024;

struct IndexOptions {
  std::filesystem::path root;                            // the repository
  std::string db_path;                                   // where the index goes
  unsigned threads = 0;                                  // parsing threads; 0: one per core
  std::uintmax_t max_file_size = DEFAULT_MAX_FILE_SIZE;  // in bytes; 0: no limit
  // Called from the calling thread now and then while files are parsed.
  std::function<void(std::size_t done, std::size_t total)> progress;
  // Called once when another run holds the index's lock; the run then waits for it.
  std::function<void()> waiting;
  // Path globs (utils/glob.h: path_glob_match), relative to `root`, of files that are not
  // indexed at all.
  std::vector<std::string> exclude;
  // Fully qualified names of definitions that are used from outside, as the entry points
  // of packaging files are: they are exported. One that names nothing is a warning.
  std::vector<std::string> entry_points;
};

struct IndexSummary {
  std::size_t files = 0;
  std::size_t python_files = 0;
  std::size_t symbols = 0;
  std::size_t edges = 0;
  std::size_t pending_references = 0;
  // How the call sites of names the repository defines were bound.
  CallBindings calls;
  double seconds = 0;
  // One per file that could not be read whole, and per directory left out of the listing.
  std::vector<std::string> warnings;
};

// Writes the index of `options.root` to `options.db_path`, as IndexTarget describes: only
// a missing file or an index is replaced, one run at a time, through a temporary file of
// its own renamed into place when complete, so a failed, interrupted or killed run leaves
// the previous index as it was and no temporary file behind (a killed run's is removed by
// the next). The index's own files and `.quarry/` are never listed; another directory of
// the tree that holds the index is left out with a warning. A file that cannot be read or
// parsed, or is over the size limit, is still listed, with what could be read, and named
// in a warning. Throws std::runtime_error (or DatabaseError) when the root cannot be listed
// or the index cannot be written.
IndexSummary build_index(const IndexOptions& options);

}  // namespace quarry::indexer
