// What the SARIF and GitHub renderers share: the rules that findings belong to, and one
// message per finding. Internal to the report layer.
#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

#include "report/report.h"

namespace quarry::report::detail {

// A kind of finding, as SARIF describes it and GitHub titles it.
struct Rule {
  std::string_view id;
  std::string_view name;
  std::string_view short_description;
  std::string_view full_description;
  std::string_view help;
  std::string_view level;      // SARIF level: warning or note
  std::string_view precision;  // high or medium
};

// The rules of dead code (certain, likely) and of cycles (component, file).
std::span<const Rule> dead_code_rules();
std::span<const Rule> cycle_rules();

// The rule of `symbol` among dead_code_rules(), or of a cycle at `level` among cycle_rules().
const Rule& rule_of(const UnusedSymbol& symbol);
const Rule& rule_of_cycle(std::string_view level);

// What is unused and why, or which nodes form the cycle and its shortest path, in one line
// of plain text (names exactly as stored).
std::string message(const UnusedSymbol& symbol);
std::string message(const CycleComponent& cycle, std::string_view level);

// "" without a baseline, else what it did, to end a summary line:
// "; 12 hidden by the baseline, 2 baseline entries no longer occur".
std::string baseline_summary(const BaselineCounts& baseline);

// Throws std::logic_error: `format` is not one that `what` renders in.
[[noreturn]] void unsupported(Format format, std::string_view what);

void render_sarif(const RenderContext& context, const DeadCodeReport& report);
void render_sarif(const RenderContext& context, const CyclesReport& report);
void render_github(const RenderContext& context, const DeadCodeReport& report);
void render_github(const RenderContext& context, const CyclesReport& report);

}  // namespace quarry::report::detail
