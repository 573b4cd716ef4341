// generate_index FILE [SCALE | SYMBOLS [EDGES]]: writes a synthetic index, to time the
// command line on it (quarry --db FILE dead-code). SCALE is S, M or L.
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
  bool valid = argc >= 2 && argc <= 4;
  if (valid && argc == 3 && quarry::bench::parse_scale(argv[2])) {
    options = quarry::bench::scale_options(*quarry::bench::parse_scale(argv[2]));
  } else if (valid) {
    valid = (argc < 3 || parse(argv[2], options.symbols)) &&
            (argc < 4 || parse(argv[3], options.edges));
  }
  if (!valid) {
    std::cerr << "usage: generate_index FILE [S|M|L | SYMBOLS [EDGES]]\n";
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
