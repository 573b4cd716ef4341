// Synthetic indexes of a chosen size, for benchmarks and for timing the command line.
#pragma once

#include <cstdint>
#include <string>

namespace quarry::bench {

struct GenerateOptions {
  std::int64_t symbols = 100'000;  // rows of symbols (module symbols included)
  std::int64_t edges = 500'000;    // rows of edges
  std::uint64_t seed = 1;          // the same options always give the same index
};

// Writes a new index at `path` (which must not exist) shaped like a Python code base:
// components of files of about 50 symbols (modules, classes with methods, functions,
// nested functions, constants), a tenth of the files tests and a few documents; names
// shared between definitions, dispatch families, decorated and exported definitions;
// edges of every kind and resolution, guesses included, to three quarters of the
// symbols; and pending references. The lookup indexes are created after the rows.
void generate_index(const std::string& path, const GenerateOptions& options = {});

}  // namespace quarry::bench
