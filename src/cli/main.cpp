#include "cli/cli.h"

int main(int argc, char** argv) {
  return quarry::cli::run_main(argc, argv);
}
