// Record types shared by the repository's query classes and their front ends.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quarry {

// A definition that nothing in production code uses.
struct DeadSymbol {
  std::string fqn;
  std::string name;
  std::string kind;
  std::string file;
  std::int64_t line;

  bool operator==(const DeadSymbol&) const = default;
};

// A set of nodes (files or components) that depend on each other in a cycle.
struct CircularDependency {
  std::vector<std::string> nodes;
  std::string type;

  bool operator==(const CircularDependency&) const = default;
};

// One caller taken into an impact analysis.
struct CallerInfo {
  std::int64_t id;
  std::string name;
  std::string kind;
  std::string fqn;
  std::int64_t line;
  std::optional<std::int64_t> call_line;
  std::string file;
  std::int64_t depth;

  bool operator==(const CallerInfo&) const = default;
};

// What changing one symbol would affect.
struct ImpactAnalysis {
  std::string fqn;
  std::vector<CallerInfo> direct_callers;
  std::vector<CallerInfo> transitive_callers;
  std::vector<std::string> affected_files;
  std::vector<std::string> affected_components;
  std::vector<std::string> affected_tests;
  double impact_score = 0.0;
  std::int64_t depth = 0;

  bool operator==(const ImpactAnalysis&) const = default;
};

// One dependency between two components: `source` depends on `target`.
struct ComponentDependency {
  std::string source;
  std::string target;

  bool operator==(const ComponentDependency&) const = default;
};

}  // namespace quarry
