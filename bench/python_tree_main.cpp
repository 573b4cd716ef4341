// python_tree DIR [LINES [SEED]]: writes the generated Python tree of bench_index (default
// 200,000 lines, seed 1) under DIR, to index and query it with the command line. Built as
// script_tree (QUARRY_SCRIPT_TREE), it writes the TypeScript tree of `bench_index --scripts`.
#include <charconv>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string_view>

#include "python_tree.h"
#include "script_tree.h"

namespace {

#ifdef QUARRY_SCRIPT_TREE
constexpr const char* PROGRAM = "script_tree";
constexpr auto WRITE_TREE = quarry::bench::write_script_tree;
#else
constexpr const char* PROGRAM = "python_tree";
constexpr auto WRITE_TREE = quarry::bench::write_python_tree;
#endif

bool parse(std::string_view text, std::uint64_t& out) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

int main(int argc, char** argv) {
  std::uint64_t lines = 200000;
  std::uint64_t seed = 1;
  if (argc < 2 || argc > 4 || (argc > 2 && !parse(argv[2], lines)) ||
      (argc > 3 && !parse(argv[3], seed))) {
    std::cerr << "usage: " << PROGRAM << " DIR [LINES [SEED]]\n";
    return 2;
  }
  try {
    const std::size_t written = WRITE_TREE(argv[1], lines, seed);
    std::cout << written << " lines written under " << argv[1] << '\n';
  } catch (const std::exception& error) {
    std::cerr << PROGRAM << ": " << error.what() << '\n';
    return 1;
  }
  return 0;
}
