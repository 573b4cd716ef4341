// Generates a TypeScript source tree for indexing benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>

namespace quarry::bench {

// Writes packages of TypeScript modules (and a JSX component per package) under `root` until
// at least `min_lines` lines are written, reproducibly from `seed`, in the shape of
// write_python_tree's: classes with methods and overrides deriving from a class of another
// module, functions and arrow functions calling each other within a module, across modules
// through named and namespace imports, methods called on typed receivers and on values of
// unknown type, interfaces, decorated handlers, constants, tests, and import cycles. A
// package.json names the first module as the entry point. Returns the number of lines
// written.
std::size_t write_script_tree(const std::filesystem::path& root, std::size_t min_lines,
                              std::uint64_t seed = 1);

}  // namespace quarry::bench
