// Builds the index of a repository: lists its files, parses its Python files in parallel,
// binds their names across files and writes the index database in one go.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace quarry::indexer {

struct IndexOptions {
  std::filesystem::path root;  // the repository
  std::string db_path;         // where the index goes
  unsigned threads = 0;        // parsing threads; 0: one per core
  // Called from the calling thread now and then while files are parsed.
  std::function<void(std::size_t done, std::size_t total)> progress;
};

struct IndexSummary {
  std::size_t files = 0;
  std::size_t python_files = 0;
  std::size_t symbols = 0;
  std::size_t edges = 0;
  std::size_t pending_references = 0;
  double seconds = 0;
  std::vector<std::string> warnings;  // one per file that could not be read whole
};

// Writes the index of `options.root` to `options.db_path`. The index is built in a
// temporary file beside the target and renamed into place only when complete, so a failed
// or interrupted run leaves the previous index as it was. A file that cannot be read or
// parsed is still listed, with what could be read, and named in a warning. Throws
// std::runtime_error (or DatabaseError) when the root cannot be listed or the index cannot
// be written.
IndexSummary build_index(const IndexOptions& options);

}  // namespace quarry::indexer
