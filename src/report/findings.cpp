#include "report/findings.h"

#include <array>

#include "report/text.h"

namespace quarry::report::detail {

namespace {

constexpr std::string_view CYCLE_HELP =
    "Break the cycle by moving what the members share into a place of its own, or by turning "
    "one dependency around (pass a function or an object in instead of importing it). The "
    "message names the shortest cycle: removing any one of its dependencies breaks it.";

constexpr std::array DEAD_CODE_RULES{
    Rule{.id = "dead-code-certain",
         .name = "UnusedDefinition",
         .short_description = "Unused definition",
         .full_description =
             "A function, method, class or variable that nothing in the production code uses, "
             "and that is no entry point, no export and no name looked up at run time.",
         .help = "Delete the definition, and the tests that only exercise it. If code outside "
                 "the repository uses it, declare it as an entry point instead.",
         .level = "warning",
         .precision = "high"},
    Rule{.id = "dead-code-likely",
         .name = "ProbablyUnusedDefinition",
         .short_description = "Probably unused definition",
         .full_description =
             "A definition that nothing in the production code visibly uses, but that might be "
             "reached in a way the index cannot rule out; the message gives the reasons.",
         .help = "Check the reasons in the message before deleting it. If it is used, declare "
                 "it as an entry point or ignore its name in the configuration.",
         .level = "note",
         .precision = "medium"},
};

constexpr std::array CYCLE_RULES{
    Rule{.id = "cycle-component",
         .name = "ComponentDependencyCycle",
         .short_description = "Dependency cycle between components",
         .full_description =
             "Components that depend on each other, directly or through others, so that none "
             "of them can be understood, tested or changed without the rest.",
         .help = CYCLE_HELP,
         .level = "note",
         .precision = "high"},
    Rule{.id = "cycle-file",
         .name = "FileDependencyCycle",
         .short_description = "Dependency cycle between files",
         .full_description =
             "Source files that import or use each other, directly or through others, so that "
             "none of them can be loaded or understood without the rest.",
         .help = CYCLE_HELP,
         .level = "note",
         .precision = "high"},
};

}  // namespace

std::span<const Rule> dead_code_rules() {
  return DEAD_CODE_RULES;
}

std::span<const Rule> cycle_rules() {
  return CYCLE_RULES;
}

const Rule& rule_of(const UnusedSymbol& symbol) {
  return DEAD_CODE_RULES[symbol.confidence == DeadConfidence::certain ? 0 : 1];
}

const Rule& rule_of_cycle(std::string_view level) {
  return CYCLE_RULES[level == "component" ? 0 : 1];
}

std::string message(const UnusedSymbol& symbol) {
  const bool certain = symbol.confidence == DeadConfidence::certain;
  std::string text = symbol.kind + " " + symbol.fqn + " is " + (certain ? "" : "probably ") +
                     "never used" + (symbol.used_by_tests ? " outside tests" : "");
  if (!symbol.reasons.empty()) text += ": " + joined(symbol.reasons, "; ");
  return text + ".";
}

std::string message(const CycleComponent& cycle, std::string_view level) {
  const std::string noun(level);
  return "Dependency cycle between " +
         count_of(static_cast<std::int64_t>(cycle.nodes.size()), noun, noun + "s") + ": " +
         joined(cycle.nodes, ", ") + ". Shortest cycle: " + joined(cycle.cycle, " -> ") + ".";
}

std::string baseline_summary(const BaselineCounts& baseline) {
  if (!baseline.used) return "";
  std::string text = "; " + count_of(baseline.hidden, "finding hidden by the baseline",
                                     "findings hidden by the baseline");
  // Entries that no longer occur can be dropped by writing the baseline anew.
  if (baseline.stale > 0) {
    text += ", " + count_of(baseline.stale, "baseline entry no longer occurs",
                            "baseline entries no longer occur");
  }
  return text;
}

}  // namespace quarry::report::detail
