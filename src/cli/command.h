// What the commands of the command line share: global options, error kinds, the index.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "config/config.h"
#include "report/report.h"
#include "storage/repository.h"

namespace quarry::cli {

// A malformed or missing argument: exit status 2.
class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The index answered, but not what the user named (a symbol name that matches nothing):
// exit status 1.
class NotFoundError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// State of one run of the command line: the global options, where output goes, and the
// action that the chosen command set up while its options were parsed.
struct Context {
  std::string db_path = ".quarry/index.db";
  bool db_given = false;               // whether --db was on the command line
  std::string config_path;             // --config; empty: found from the working directory upward
  std::optional<Config> given_config;  // the --config file, read once
  std::ostream* err = nullptr;         // warnings
  int status = 0;                      // the exit status when the action returns: 3 for --fail-on
  // The output format (--format, or --json); `json` tells whether it is json.
  report::Format format = report::Format::text;
  bool json = false;
  std::ostream* out = nullptr;
  bool colour = false;
  // How file paths of the index are shown (empty: as stored) and the repository root as an
  // absolute path (empty: unknown); see report::RenderContext.
  std::function<std::string(std::string_view)> display_path;
  std::string root;
  std::function<void()> action;

  // Opens the index read-only: --db, else the first .quarry/index.db from the working
  // directory upward, else .quarry/index.db. Learns the repository root from the index's
  // meta table (else from the .quarry directory that holds it) so that paths are shown
  // relative to the working directory, and warns when the index was built at another
  // commit than the work tree's. Throws DatabaseError when the index cannot be used.
  std::unique_ptr<Repository> open_repository();

  // The configuration: --config, else the one found from `start` (the working directory
  // when empty) upward, else an empty one. Throws ConfigError for a malformed file.
  Config configuration(const std::filesystem::path& start = {}) const;

  // What the renderers need of this run.
  report::RenderContext render_context() const;

  // Prints `report` to `out` in the chosen format.
  template <typename Report>
  void render(const Report& report) const {
    report::render(render_context(), format, report);
  }
};

// Parses a decimal integer given to `option`; with `non_negative`, it must be zero or
// more. Throws UsageError naming the option and the value otherwise.
std::int64_t parse_integer(std::string_view option, const std::string& text, bool non_negative);

// Each adds its subcommand to `app`; the subcommand's callback sets `context.action`.
void add_callers_command(CLI::App& app, Context& context);
void add_impact_command(CLI::App& app, Context& context);
void add_stats_command(CLI::App& app, Context& context);
void add_index_command(CLI::App& app, Context& context);
void add_dead_code_command(CLI::App& app, Context& context);
void add_cycles_command(CLI::App& app, Context& context);
void add_baseline_command(CLI::App& app, Context& context);

}  // namespace quarry::cli
