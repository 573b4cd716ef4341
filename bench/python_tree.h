// Generates a Python source tree for indexing benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace quarry::bench {

// Writes packages of Python modules under `root` until at least `min_lines` lines are
// written, reproducibly from `seed`: classes with methods and overrides, functions calling
// each other within a module, across modules through imports and through attributes of
// unknown values, decorated handlers, constants, tests, and import cycles. Returns the
// number of lines written.
std::size_t write_python_tree(const std::filesystem::path& root, std::size_t min_lines,
                              std::uint64_t seed = 1);

}  // namespace quarry::bench
