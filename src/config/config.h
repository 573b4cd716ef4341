// The configuration file: `[tool.quarry]` in a pyproject.toml, or the top level of a
// quarry.toml. Keys, all optional:
//   exclude          array of path globs (utils/glob.h) of files left out of the index
//   ignore-names     array of fqn globs of definitions never reported as dead code
//   runtime-members  array of member names, as --runtime-member
//   entry-points     array of fully qualified names that count as used
//   baseline         string, the path of the baseline file
//   fail-on          string: "certain", "likely" or "any", as --fail-on
// Paths and path globs are written relative to the directory of the file.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace quarry {

// A configuration file that cannot be read, does not parse, or holds what quarry does not
// take. The message is one line that begins with the file and, where there is one, the
// line: "pyproject.toml:12: unknown key 'ignore_names' in [tool.quarry]".
class ConfigError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Config {
  std::filesystem::path file;       // the file read, absolute; empty when there is none
  std::filesystem::path directory;  // the directory of `file`; empty when there is none
  std::vector<std::string> exclude;
  std::vector<std::string> ignore_names;
  std::vector<std::string> runtime_members;
  std::vector<std::string> entry_points;
  std::optional<std::string> baseline;  // as written; see baseline_path
  std::optional<std::string> fail_on;   // "certain", "likely" or "any"

  bool operator==(const Config&) const = default;

  // The baseline file, resolved against `directory` when written as a relative path;
  // nothing when no baseline is configured.
  std::optional<std::filesystem::path> baseline_path() const;

  // The exclude globs made relative to `root` (absolute, lexically normal; at or below
  // `directory`): a glob anchored inside `root` loses the part above it, one anchored
  // elsewhere is dropped, and one that matches anywhere (no `/` but a trailing one, or a
  // leading `**/`) stays as it is.
  std::vector<std::string> exclude_below(const std::filesystem::path& root) const;
};

// Reads the configuration file at `path`. A file named pyproject.toml gives its
// [tool.quarry] table (an empty configuration when it has none); any other file gives its
// top level. Arrays may be empty. Throws ConfigError when the file cannot be read, is not
// valid TOML (with the parser's line and description), holds a key not listed above (a
// table within the configuration included), a value of the wrong type (an array holding
// anything but strings included), or a fail-on other than the three words. Messages name
// the file by its path relative to the working directory when it lies under it (absolute
// otherwise), the line of the offending key or value, and the key.
Config load_config(const std::filesystem::path& path);

// Finds the configuration for a run started in the directory `start`, looking there and
// then in each directory above, up to the root of the file system, as git finds .git: in
// each, a pyproject.toml with a [tool.quarry] table wins, else a quarry.toml. A
// pyproject.toml without that table is passed over, and so is one that does not parse
// unless its text mentions "quarry" (then it is taken for a broken configuration and its
// error thrown). Returns the configuration of the nearest file found, or nothing. Throws
// ConfigError as load_config does for the file it settles on.
std::optional<Config> find_config(const std::filesystem::path& start);

}  // namespace quarry
