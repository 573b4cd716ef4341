// The reports of the query commands and their renderers. A command turns the records that
// the repository returns into one report; a renderer prints that report in one format.
//
// Formats: `text` for people at a terminal, `json` (every report), `sarif` (SARIF 2.1.0)
// and `github` (GitHub workflow annotations) for dead code and cycles, `dot` (a Graphviz
// digraph) for cycles.
#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "storage/repository_quality.h"

namespace quarry::report {

enum class Format { text, json, sarif, github, dot };

// The name of `format`, as `--format` takes it.
std::string_view to_string(Format format);

// The format named `name`, if there is one.
std::optional<Format> parse_format(std::string_view name);

// Every format, in the order they are listed to the user.
std::span<const Format> all_formats();

// The formats that the command named `command` prints: text and json for every command,
// sarif and github for dead-code and cycles, dot for cycles.
std::span<const Format> formats_of(std::string_view command);

// What every renderer is given besides its report.
struct RenderContext {
  std::ostream* out = nullptr;
  bool colour = false;  // colour codes in text output
  // Maps a path as the index stores it (relative to the repository root) to the path to
  // show; text and github output pass every file path through it. Empty: shown as stored.
  std::function<std::string(std::string_view)> display_path;
  // The repository root as an absolute path, when known; SARIF names it as SRCROOT.
  std::string root;
  std::string version;  // quarry's version, named by SARIF output

  // `index_path` as it is to be shown.
  std::string path(std::string_view index_path) const;
};

// What a baseline did to a report: with `used`, `hidden` findings were left out because the
// baseline holds them, and `stale` baseline entries match no finding any more.
struct BaselineCounts {
  bool used = false;
  std::int64_t hidden = 0;
  std::int64_t stale = 0;

  bool operator==(const BaselineCounts&) const = default;
};

// One symbol that `callers` was asked about: its id (none for an id beyond the 64-bit
// range, which matches no symbol), how to show it, and whether the index has it.
struct AskedSymbol {
  std::optional<std::int64_t> id;
  std::string label;
  bool found = true;

  bool operator==(const AskedSymbol&) const = default;
};

struct CallersReport {
  std::vector<AskedSymbol> asked;  // in the order asked, repeats included
  std::vector<Caller> callers;
  bool guessed = false;  // guessed callers rather than proven ones

  bool operator==(const CallersReport&) const = default;
};

struct ImpactReport {
  ImpactAnalysis analysis;

  bool operator==(const ImpactReport&) const = default;
};

struct StatsReport {
  std::map<std::string, std::int64_t> stats;  // statistic name -> count

  bool operator==(const StatsReport&) const = default;
};

struct DeadCodeReport {
  DeadCodePage page;
  std::int64_t offset = 0;  // how many candidates precede the page
  BaselineCounts baseline;

  bool operator==(const DeadCodeReport&) const = default;
};

// One dependency cycle with the dependencies among its members, (source, target) sorted:
// what a drawing of the cycle shows.
struct CycleFinding {
  CycleComponent cycle;
  std::vector<std::pair<std::string, std::string>> edges;

  bool operator==(const CycleFinding&) const = default;
};

struct CyclesReport {
  std::string level;  // "component" or "file"
  std::vector<CycleFinding> cycles;
  BaselineCounts baseline;

  bool operator==(const CyclesReport&) const = default;
};

// The cycles report of `graph` at `level` ("component" or "file"): the cycles as
// condense_cycles finds them, each with the graph's edges among its members.
CyclesReport make_cycles_report(const DependencyGraph& graph, const std::string& level);

// The identity of a finding that survives edits which move it: a dead symbol's fully
// qualified name; a cycle's members (sorted) joined by ", ". SARIF's fingerprints are these.
std::string finding_id(const UnusedSymbol& symbol);
std::string finding_id(const CycleComponent& cycle);

// Each prints `report` in `format` to context.out. Throws std::logic_error when the
// report has no such format (see formats_of: the command line checks it first).
void render(const RenderContext& context, Format format, const CallersReport& report);
void render(const RenderContext& context, Format format, const ImpactReport& report);
void render(const RenderContext& context, Format format, const StatsReport& report);
void render(const RenderContext& context, Format format, const DeadCodeReport& report);
void render(const RenderContext& context, Format format, const CyclesReport& report);

}  // namespace quarry::report
