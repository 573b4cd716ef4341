// generate_index FILE [SYMBOLS [EDGES]]: writes a synthetic index, to time the command line
// on it (quarry --db FILE dead-code).
#include <charconv>
#include <exception>
#include <iostream>
#include <string_view>

#include "generate_index.h"

namespace {

bool parse(std::string_view text, std::int64_t& out) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
  return error == std::errc() && end == text.data() + text.size() && out >= 0;
}

}  // namespace

int main(int argc, char** argv) {
  quarry::bench::GenerateOptions options;
  if (argc < 2 || argc > 4 || (argc > 2 && !parse(argv[2], options.symbols)) ||
      (argc > 3 && !parse(argv[3], options.edges))) {
    std::cerr << "usage: generate_index FILE [SYMBOLS [EDGES]]\n";
    return 2;
  }
  try {
    quarry::bench::generate_index(argv[1], options);
  } catch (const std::exception& error) {
    std::cerr << "generate_index: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
