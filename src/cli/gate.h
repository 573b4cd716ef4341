// What dead-code, cycles and baseline share: ignores, the baseline, and the --fail-on gate.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cli/command.h"
#include "config/config.h"
#include "report/baseline.h"
#include "storage/repository_quality.h"

namespace quarry::cli {

struct GateArgs {
  std::string baseline;  // --baseline FILE
  std::string fail_on;   // --fail-on WHAT
};

// Adds --baseline FILE and --fail-on `choices` to `command`.
void add_gate_options(CLI::App& command, GateArgs& args, const std::string& choices);

// The --fail-on of this run: the option, else the configuration's `fail-on`. On the command
// line it must be one of `accepted` (a usage error otherwise). For cycles (`cycles` set),
// which are never merely likely, a configured "certain" or "any" gates and "likely" does not.
std::optional<std::string> gate_fail_on(const GateArgs& args, const Config& config,
                                        const std::vector<std::string>& accepted,
                                        bool cycles = false);

// The baseline of this run: --baseline FILE (which must exist), else the configured
// baseline file when it exists, else none. Throws report::BaselineError for a file that
// cannot be read or is no baseline.
std::optional<report::Baseline> gate_baseline(const GateArgs& args, const Config& config);

// The dead-code options that the configuration and the command line's runtime members
// give: members named on the command line replace the configured ones.
DeadCodeOptions dead_code_options(const Config& config, std::vector<std::string> runtime_members);

// Whether a fully qualified name is one the configuration's `ignore-names` globs hold;
// nothing when there are none.
std::function<bool(const std::string&)> ignored_names(const Config& config);

}  // namespace quarry::cli
