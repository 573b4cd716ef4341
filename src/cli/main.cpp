#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "cli/cli.h"

int main(int argc, char** argv) {
  const bool colour = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
  std::vector<std::string> args(argv, argv + argc);
  return quarry::cli::run(args, std::cout, std::cerr, colour);
}
