// The floor under indexing: the Python, JavaScript and TypeScript files of a tree read and
// parsed with the pinned grammars by tree-sitter alone, on as many threads as the indexer
// uses, nothing else.
#pragma once

#include <cstddef>
#include <filesystem>

namespace quarry::bench {

struct ParseFloor {
  std::size_t files = 0;
  std::size_t bytes = 0;
  double seconds = 0;  // wall time of reading and parsing them all
};

// Reads and parses every Python (`.py`, `.pyi`) and script (`.js .mjs .cjs .jsx .ts .mts
// .cts .tsx`) file below `root` (skipping `.git` and `.quarry`) on `threads` threads (0: one
// per core).
ParseFloor parse_floor(const std::filesystem::path& root, unsigned threads = 0);

}  // namespace quarry::bench
