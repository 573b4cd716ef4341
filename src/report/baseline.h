// Baselines: the findings a project has accepted, so that a CI gate fails only on new ones.
//
// A baseline file is one JSON document, sorted so that it diffs well when committed:
//
//   {"version": 1,
//    "dead_code": [{"fqn": "pkg.mod.f", "kind": "function"}, ...],
//    "cycles": [{"type": "component", "members": ["a", "b"]}, ...]}
//
// A dead-code finding is known by its fully qualified name and kind, a cycle by its level
// and its sorted members, so a finding keeps its identity when lines move above it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "storage/repository_quality.h"

namespace quarry::report {

// A baseline file that cannot be read or does not hold a baseline: a malformed argument.
class BaselineError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

inline constexpr std::int64_t BASELINE_VERSION = 1;

// The identity of an accepted dead-code finding.
struct BaselineSymbol {
  std::string fqn;
  std::string kind;

  auto operator<=>(const BaselineSymbol&) const = default;
};

// The identity of an accepted cycle: its level ("component" or "file") and its members,
// sorted.
struct BaselineCycle {
  std::string type;
  std::vector<std::string> members;

  auto operator<=>(const BaselineCycle&) const = default;
};

struct Baseline {
  std::set<BaselineSymbol> dead_code;
  std::set<BaselineCycle> cycles;

  bool operator==(const Baseline&) const = default;
};

// The identity of `cycle` in a baseline.
BaselineCycle baseline_identity(const CycleComponent& cycle);

// The identities of `symbols` and `cycles`.
Baseline make_baseline(const std::vector<UnusedSymbol>& symbols,
                       const std::vector<CycleComponent>& cycles);

// Reads the baseline file `path`. Throws BaselineError naming the file when it cannot be
// read, is not JSON, or does not have the shape above (an entry without its keys, a
// version this program does not know).
Baseline read_baseline(const std::filesystem::path& path);

// Writes `baseline` to `path` atomically (a temporary file beside it, then renamed),
// creating its directory when missing. Throws std::runtime_error naming the file on
// failure; the previous file is then left as it was.
void write_baseline(const std::filesystem::path& path, const Baseline& baseline);

// What is left of a list of findings after ignores and a baseline.
template <typename Finding>
struct Filtered {
  std::vector<Finding> kept;
  std::int64_t hidden = 0;  // findings that the baseline holds
  std::int64_t stale = 0;   // baseline entries (of the kinds looked at) that no longer occur

  bool operator==(const Filtered&) const = default;
};

// `symbols` without those whose fqn `ignored` holds for and, when `baseline` is given,
// without those it holds. Order is kept. `stale` counts the baseline's dead-code entries
// that match no finding of `symbols` (ignored or not).
Filtered<UnusedSymbol> filter_dead_code(std::vector<UnusedSymbol> symbols, const Baseline* baseline,
                                        const std::function<bool(const std::string&)>& ignored);

// `cycles` (all of level `type`) without those `baseline` holds; `stale` counts the
// baseline's cycles of that level that no longer occur. `cycle_of` gives the cycle of a
// finding (a CycleComponent itself, or a finding that holds one).
template <typename Finding, typename CycleOf>
Filtered<Finding> filter_cycles(std::vector<Finding> cycles, const std::string& type,
                                const Baseline* baseline, CycleOf cycle_of) {
  Filtered<Finding> result;
  for (Finding& finding : cycles) {
    // A level's cycles have distinct members, so each hides a baseline entry of its own.
    if (baseline != nullptr && baseline->cycles.contains(baseline_identity(cycle_of(finding)))) {
      ++result.hidden;
      continue;
    }
    result.kept.push_back(std::move(finding));
  }
  if (baseline != nullptr) {
    result.stale = std::count_if(baseline->cycles.begin(), baseline->cycles.end(),
                                 [&](const BaselineCycle& c) { return c.type == type; }) -
                   result.hidden;
  }
  return result;
}

inline Filtered<CycleComponent> filter_cycles(std::vector<CycleComponent> cycles,
                                              const std::string& type, const Baseline* baseline) {
  return filter_cycles(std::move(cycles), type, baseline,
                       [](const CycleComponent& cycle) -> const CycleComponent& { return cycle; });
}

// The findings that make `--fail-on` fail: "certain" certain dead code, "likely" likely
// dead code, "any" every finding. Throws std::invalid_argument for another `fail_on`.
std::int64_t failing_dead_code(const std::vector<UnusedSymbol>& symbols,
                               const std::string& fail_on);

}  // namespace quarry::report
