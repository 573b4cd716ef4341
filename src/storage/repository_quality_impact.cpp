// Impact analysis: the proven callers of a symbol walked breadth first, and the score of
// what they affect.
#include <algorithm>
#include <cmath>
#include <set>
#include <unordered_set>

#include "storage/repository_quality.h"
#include "utils/rounding.h"

namespace quarry {

namespace {

constexpr std::int64_t MIN_DEPTH = 1;
constexpr std::int64_t MAX_DEPTH = 5;

CallerInfo to_caller_info(const Caller& caller, std::int64_t depth) {
  return CallerInfo{.id = caller.id,
                    .name = caller.name,
                    .kind = caller.kind,
                    .fqn = caller.fqn,
                    .line = caller.line,
                    .call_line = caller.call_line,
                    .file = caller.path,
                    .depth = depth};
}

}  // namespace

ImpactAnalysis QualityQueries::analyze_impact(const std::string& fqn, std::int64_t depth,
                                              bool include_tests) {
  depth = std::max(MIN_DEPTH, std::min(depth, MAX_DEPTH));
  ImpactAnalysis analysis{.fqn = fqn, .impact_score = 0.0, .depth = depth};

  const std::optional<Symbol> symbol = get_symbol_by_fqn(fqn);
  if (!symbol || !symbol->id) return analysis;

  // The analysed symbol counts as visited, so recursion and cycles back to it add nothing.
  std::unordered_set<std::int64_t> visited{*symbol->id};
  std::vector<std::int64_t> current_level{*symbol->id};
  std::set<std::string> all_affected_files;
  std::set<std::string> all_affected_tests;

  for (std::int64_t current_depth = 1; current_depth <= depth; ++current_depth) {
    // Ids enter a level only when first visited, so the level holds each id once.
    std::vector<std::int64_t> next_level;
    for (const Caller& caller : callers_of(current_level)) {
      const bool in_test = is_test_file(caller.path);
      if (visited.contains(caller.id)) continue;
      // A test caller left out is not visited: it stays out wherever it is met again, and
      // its own callers are never looked up.
      if (in_test && !include_tests) continue;
      visited.insert(caller.id);
      next_level.push_back(caller.id);
      auto& entries = current_depth == 1 ? analysis.direct_callers : analysis.transitive_callers;
      entries.push_back(to_caller_info(caller, current_depth));
      all_affected_files.insert(caller.path);
      if (in_test) all_affected_tests.insert(caller.path);
    }
    current_level = std::move(next_level);
    if (current_level.empty()) break;
  }

  analysis.affected_files.assign(all_affected_files.begin(), all_affected_files.end());
  analysis.affected_tests.assign(all_affected_tests.begin(), all_affected_tests.end());
  analysis.affected_components = get_components_for_files(analysis.affected_files);
  std::sort(analysis.affected_components.begin(), analysis.affected_components.end());
  analysis.impact_score =
      calculate_impact_score(static_cast<std::int64_t>(analysis.affected_files.size()),
                             static_cast<std::int64_t>(analysis.affected_components.size()));
  return analysis;
}

double QualityQueries::calculate_impact_score(std::int64_t affected_file_count,
                                              std::int64_t affected_component_count) {
  if (affected_file_count == 0) return 0.0;

  const auto stats = get_stats();
  const auto files = stats.find("files");
  std::int64_t total_files = files == stats.end() ? 1 : files->second;
  if (total_files == 0) total_files = 1;

  // Double arithmetic, each product formed before the sum that uses it.
  const double file_ratio =
      std::min(1.0, static_cast<double>(affected_file_count) / static_cast<double>(total_files));
  const double spread = 0.15 * std::log(static_cast<double>(affected_component_count + 1));
  const double component_factor = std::min(1.0, 0.3 + spread);
  const double file_part = 0.6 * file_ratio;
  const double component_part = 0.4 * component_factor;
  const double score = file_part + component_part;
  return round_decimal(std::min(1.0, score), 3);
}

}  // namespace quarry
