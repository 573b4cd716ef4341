// Prints the floor under writing an index: write_floor INDEX
// (copies the index's rows into a temporary index beside it, then removes that)
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "write_floor.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: write_floor INDEX\n");
    return 2;
  }
  const std::string out = std::string(argv[1]) + ".write-floor";
  std::filesystem::remove(out);
  try {
    const auto floor = quarry::bench::write_floor(argv[1], out);
    std::filesystem::remove(out);
    std::printf("copied %lld edges: %.3f s, of which %.3f s after the last link\n",
                static_cast<long long>(floor.edges), floor.seconds, floor.after_links);
  } catch (const std::exception& error) {
    std::filesystem::remove(out);
    std::fprintf(stderr, "write_floor: %s\n", error.what());
    return 1;
  }
  return 0;
}
