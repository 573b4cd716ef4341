// Runs the command line in-process with argument vectors made from its own commands,
// options and awkward values, against copies of the example index in a temporary
// directory, and checks what every run returns and prints.
//
//   fuzz_cli [ITERATIONS [SEED [FIRST]]]
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "cli/cli.h"
#include "fuzz_support.h"

namespace quarry::fuzz {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

// Command lines that work or fail in an ordinary way, arguments separated by spaces; the
// index copies and the files that are no index are in the working directory.
const std::vector<std::string> LINES = split(
    "callers shop.cart.Cart|--json callers --guessed --limit 3 shop.cart.Cart.add 12|stats|"
    "impact --depth 2 --include-tests shop.cart.Cart|--json impact shop.billing.tax.old_rate|"
    "--db=.quarry/index.db dead-code --component shop --limit 10 --offset 1 --runtime-member x|"
    "--db ./example.db --json dead-code --component=tests|cycles --level file --format dot|"
    "cycles --format json|--json cycles --level=component --format text|--json stats|--version|"
    "--db missing.db stats|--db not_sqlite.txt callers x|--db empty.db dead-code|callers --help|"
    "--db a_directory cycles|--db=../../x impact README.Usage|callers shop.% _ -- -1|--help",
    '|');
// Insertions: stray options and awkward values as new arguments (empty, negative, too
// large, not numbers, terminal controls, ill-formed UTF-8, line breaks, quotes, a
// right-to-left override, NUL), and bytes within one.
const std::vector<std::string> TOKENS = split(
    " --db| --json| --help| -h| --version| --bogus| -x| --| -| --limit=| --depth| --level| file|"
    " --format| json| --component| .| --runtime-member| --offset| --guessed| --include-tests| 0|"
    " -1| 99999999999999999999| 1e3| 0x10| -9223372036854775808| \x1b]0;x\x07| \xff\xfe\xc0| a\nb|"
    " a\rb| \"| \xe2\x80\xae| \0| |-|=|\xff|\x1b[|..|/|%|'|\n|9|h"sv,
    '|');

// Whether `text` can go to a terminal as it is: well-formed UTF-8 without control
// characters (line feeds aside) or bidirectional controls. Compared as bytes, a character
// is in a range of code points when its encoding is between theirs.
bool terminal_safe(std::string_view text) {
  for (std::size_t i = 0, n = 0; i < text.size(); i += n) {
    const std::string_view c = text.substr(i, n = cli::utf8_length(text, i));
    if (n == 0 || (c < " " && c != "\n") || (c >= "\x7f" && c <= "\xc2\x9f") ||
        (c >= "\xe2\x80\x8e" && c <= "\xe2\x80\x8f") ||
        (c >= "\xe2\x80\xaa" && c <= "\xe2\x80\xae") ||
        (c >= "\xe2\x81\xa6" && c <= "\xe2\x81\xa9"))
      return false;
  }
  return true;
}

std::vector<std::string> check_run(Chooser& choose) {
  std::string line = choose.pick(LINES);
  for (std::size_t n = choose.one_in(4) ? 0 : 1 + choose.below(4); n > 0; --n)
    mutate(choose, line, TOKENS, choose.pick(LINES));
  const std::vector<std::string> args = split("quarry " + line, ' ');
  const bool colour = choose.one_in(4);
  // Never the index command, which writes files, nor a path that may reach out of the
  // temporary directory (the working directory is two levels down in it).
  for (const std::string& arg : args) {
    const std::string value = arg.substr(arg.find('=') + 1);
    if (value.starts_with("index") ||
        (value.find('/') != value.npos && !listed(".quarry/index.db ./example.db ../../x", value)))
      return {};
  }
  std::ostringstream out, err;
  int status = -1;  // if an exception escapes
  try {
    status = cli::run(args, out, err, colour);
  } catch (...) {
  }
  const std::string o = out.str(), e = err.str();
  const bool one_line = e.find('\n') == e.size() - 1 && (e.starts_with("quarry: error: ") ||
                                                         e.starts_with("quarry: internal error: "));
  const bool json = status == 0 && (o.starts_with('{') || o.starts_with('['));
  std::vector<std::string> problems;
  if (status < 0 || status > 3 || (status == 0 ? !e.empty() : !one_line))
    problems.push_back("status " + std::to_string(status) + ", stderr " + show(e));
  if (json && !nlohmann::json::accept(o)) problems.push_back("not JSON: " + show(o.substr(0, 300)));
  const std::string text = json ? e : o + e;  // what a terminal would show as it is
  if (!colour && !terminal_safe(text)) problems.push_back("unsafe: " + show(text.substr(0, 300)));
  if (!problems.empty()) problems.insert(problems.begin(), (colour ? "colour: " : "") + show(line));
  return problems;
}

// Every file under `root` with its content; a directory with none.
std::map<fs::path, std::string> snapshot(const fs::path& root) {
  std::map<fs::path, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    std::ostringstream content;
    if (entry.is_regular_file()) content << std::ifstream(entry.path(), std::ios::binary).rdbuf();
    files[entry.path()] = content.str();
  }
  return files;
}

}  // namespace quarry::fuzz

int main(int argc, char** argv) {
  using namespace quarry::fuzz;
  std::string base = (fs::temp_directory_path() / "quarry_fuzz_cli_XXXXXX").string();
  if (mkdtemp(base.data()) == nullptr) return 1;
  const fs::path work = fs::path(base) / "up" / "work";
  fs::create_directories(work / ".quarry");
  fs::create_directories(work / "a_directory");
  fs::copy_file(QUARRY_EXAMPLE_DB, work / "example.db");
  fs::copy_file(QUARRY_EXAMPLE_DB, work / ".quarry" / "index.db");
  std::ofstream(work / "not_sqlite.txt") << "plain text, not an SQLite database\n";
  std::ofstream(work / "empty.db");
  const auto before = snapshot(base);
  fs::current_path(work);
  int status = loop(argc, argv, "fuzz_cli", 2000, check_run);
  if (snapshot(base) != before) {
    std::cerr << "fuzz_cli: files under " << base << " made, removed or changed\n";
    status = 1;
  }
  fs::remove_all(base);
  return status;
}
