#include "cli/gate.h"

#include <algorithm>
#include <filesystem>

#include "utils/glob.h"

namespace quarry::cli {

void add_gate_options(CLI::App& command, GateArgs& args, const std::string& choices) {
  command
      .add_option("--baseline", args.baseline,
                  "Hide the findings that this baseline file holds (written by quarry baseline)")
      ->type_name("FILE");
  command
      .add_option("--fail-on", args.fail_on,
                  "Exit with status 3 when findings of this kind remain after ignores and the "
                  "baseline")
      ->type_name(choices);
}

std::optional<std::string> gate_fail_on(const GateArgs& args, const Config& config,
                                        const std::vector<std::string>& accepted, bool cycles) {
  if (!args.fail_on.empty()) {
    if (std::find(accepted.begin(), accepted.end(), args.fail_on) == accepted.end()) {
      std::string choices;
      for (const std::string& choice : accepted)
        choices += (choices.empty() ? "" : ", ") + choice;
      throw UsageError("--fail-on takes " + choices + ", not '" + args.fail_on + "'");
    }
    return args.fail_on;
  }
  if (!config.fail_on) return std::nullopt;
  if (!cycles) return config.fail_on;
  if (*config.fail_on == "likely") return std::nullopt;
  return "any";
}

std::optional<report::Baseline> gate_baseline(const GateArgs& args, const Config& config) {
  if (!args.baseline.empty()) return report::read_baseline(args.baseline);
  const auto configured = config.baseline_path();
  std::error_code ec;
  if (!configured || !std::filesystem::exists(*configured, ec)) return std::nullopt;
  return report::read_baseline(*configured);
}

DeadCodeOptions dead_code_options(const Config& config, std::vector<std::string> runtime_members) {
  return {.runtime_members =
              runtime_members.empty() ? config.runtime_members : std::move(runtime_members)};
}

std::function<bool(const std::string&)> ignored_names(const Config& config) {
  if (config.ignore_names.empty()) return nullptr;
  return [globs = config.ignore_names](const std::string& fqn) {
    return std::any_of(globs.begin(), globs.end(),
                       [&](const std::string& glob) { return fqn_glob_match(glob, fqn); });
  };
}

}  // namespace quarry::cli
