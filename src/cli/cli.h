// The quarry command line.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace quarry::cli {

// Runs the command line `args` (args[0] being the program name), printing results to
// `out` and one-line errors to `err`. Colour codes are written only when `colour` is set.
// Returns the exit status: 0 the command ran, 1 the index cannot be used or a symbol name
// matches nothing, 2 a usage error. Never throws.
int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err, bool colour);

// The program: runs the command line with standard output and error, colour when standard
// output is a terminal and NO_COLOR is unset or empty. Output that cannot be written (a
// full disk) is an error, exit status 1; a reader that closed the pipe early ends the run
// quietly with the command's own status.
int run_main(int argc, char** argv);

}  // namespace quarry::cli
