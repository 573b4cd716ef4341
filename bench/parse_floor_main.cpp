// Prints the parse-only floor of a tree: parse_floor DIR [THREADS]
#include <cstdio>
#include <cstdlib>

#include "parse_floor.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: parse_floor DIR [THREADS]\n");
    return 2;
  }
  const unsigned threads = argc > 2 ? static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)) : 0;
  const auto floor = quarry::bench::parse_floor(argv[1], threads);
  std::printf("parsed %zu files (%zu bytes): %.3f s\n", floor.files, floor.bytes, floor.seconds);
  return 0;
}
