// Impact analysis: the proven callers of a symbol walked breadth first, and the score of
// what they affect.
#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <span>
#include <unordered_set>

#include "storage/repository_graph.h"
#include "storage/repository_quality.h"
#include "utils/language_filter.h"
#include "utils/rounding.h"

namespace quarry {

namespace {

using detail::IdPositions;
using detail::RowScan;

constexpr std::int64_t MIN_DEPTH = 1;
constexpr std::int64_t MAX_DEPTH = 5;
// A level of at least 900 ids is looked up in memory once it also holds a thousandth of
// the index's edges: reading the call graph costs about as much as the caller statements
// for that many ids (on 5,000,000 edges, a level of 8,747 ids: 3.2 s for a depth-5 walk
// from there in memory, against 3.7 s with one more level by statements).
constexpr std::int64_t EDGES_PER_MEMORY_ID = 1000;

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

// The proven call graph of the index, reversed, held in memory: for every symbol, its
// callers with the line of each call. It answers a level of the walk exactly as
// callers_of does (the same records in the same order), without the names, kinds and
// fqns, which are read afterwards for the callers that the walk keeps.
class CallGraph {
 public:
  using Slot = std::uint32_t;

  // Reads the source files, the symbols and the proven call edges, each once. Nothing
  // when the index holds a value whose order or conversion the caller statement would
  // treat otherwise than this graph (a caller's start line or a call line that is no
  // integer, or a call line of the least 64-bit integer): the walk then stays with
  // callers_of.
  static std::optional<CallGraph> load(Database& db);

  // Calls `take(slot, call_line)` for the callers that callers_of(level) gives, in its
  // order, one call per pair of asked symbol and caller. Requires `level` to hold
  // distinct ids of symbols.
  template <typename Take>
  void for_each_caller(const std::vector<std::int64_t>& level, Take&& take);

  Slot slot_of(std::int64_t id) const { return slots_.find(id); }
  std::int64_t id(Slot slot) const { return symbols_[slot].id; }
  std::int64_t line(Slot slot) const { return symbols_[slot].start_line; }
  // The caller's file, a position in paths().
  std::uint32_t file(Slot slot) const { return symbols_[slot].file; }
  const std::vector<std::string>& paths() const { return paths_; }
  std::size_t size() const { return symbols_.size(); }

 private:
  static constexpr std::int64_t NO_LINE = std::numeric_limits<std::int64_t>::min();
  // What the order of callers reads of a symbol, in one place.
  struct SymbolInfo {
    std::int64_t id;
    std::int64_t start_line;
    std::uint32_t file;       // IdPositions::NONE: not in a source file, never a caller
    std::uint32_t path_rank;  // the order of its file's path; equal paths share a rank
  };
  struct Call {
    Slot source;
    std::int64_t line;  // NO_LINE when the edge has none
  };
  // One caller of an asked symbol while a level is ordered.
  struct Ranked {
    std::uint32_t path_rank;
    std::int64_t start_line;
    std::int64_t id;
    Slot slot;
    std::int64_t line;
  };

  explicit CallGraph(const std::vector<std::int64_t>& ids) : slots_(ids) {}

  IdPositions slots_;
  std::vector<SymbolInfo> symbols_;
  std::vector<std::string> paths_;  // the source files' paths
  // The calls into slot s: calls_[ranges_[s].first .. ranges_[s].second).
  std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges_;
  std::vector<Call> calls_;
  std::vector<Ranked> scratch_;
};

std::optional<CallGraph> CallGraph::load(Database& db) {
  std::vector<std::int64_t> file_ids;
  std::vector<std::string> paths;
  {
    Params languages;
    append_texts(languages, SOURCE_LANGUAGES);
    RowScan files(db,
                  "SELECT id, path FROM files WHERE language IN (" +
                      placeholders(SOURCE_LANGUAGES.size()) + ")",
                  languages);
    while (files.next()) {
      file_ids.push_back(files.integer(0));
      paths.emplace_back(files.text(1));
    }
  }
  std::vector<std::uint32_t> order(paths.size());
  for (std::uint32_t i = 0; i < order.size(); ++i)
    order[i] = i;
  std::sort(order.begin(), order.end(),
            [&paths](std::uint32_t a, std::uint32_t b) { return paths[a] < paths[b]; });
  std::vector<std::uint32_t> path_ranks(paths.size());
  for (std::size_t i = 0, rank = 0; i < order.size(); ++i) {
    if (i > 0 && paths[order[i]] != paths[order[i - 1]]) ++rank;
    path_ranks[order[i]] = static_cast<std::uint32_t>(rank);
  }
  const IdPositions file_positions(file_ids);

  std::vector<SymbolInfo> symbols;
  {
    RowScan scan(db, "SELECT id, file_id, start_line FROM symbols");
    while (scan.next()) {
      const std::uint32_t file =
          scan.is_integer(1) ? file_positions.find(scan.integer(1)) : IdPositions::NONE;
      if (file != IdPositions::NONE && !scan.is_integer(2)) return std::nullopt;
      symbols.push_back({scan.integer(0), file == IdPositions::NONE ? 0 : scan.integer(2), file,
                         file == IdPositions::NONE ? 0 : path_ranks[file]});
    }
  }
  std::vector<std::int64_t> ids(symbols.size());
  for (std::size_t slot = 0; slot < symbols.size(); ++slot)
    ids[slot] = symbols[slot].id;
  CallGraph graph(ids);
  ids = {};
  graph.symbols_ = std::move(symbols);
  graph.paths_ = std::move(paths);

  // The proven calls by callee: in callee order, so that each callee's calls come
  // together (read from the edges-by-target index where the index has it). Callers
  // outside source files are kept here and passed over by the walk.
  graph.ranges_.assign(graph.size(), {0, 0});
  RowScan edges(db,
                "SELECT e.target_id, e.source_id, e.line FROM edges e WHERE e.kind = 'call' "
                "AND NOT " +
                    detail::GUESSED_SQL + " ORDER BY e.target_id");
  std::int64_t last_target = 0;
  Slot target = IdPositions::NONE;
  bool first = true;
  while (edges.next()) {
    if (!edges.is_integer(0) || !edges.is_integer(1)) continue;
    const std::int64_t target_id = edges.integer(0);
    if (first || target_id != last_target) {
      first = false;
      last_target = target_id;
      target = graph.slot_of(target_id);
      if (target != IdPositions::NONE) {
        const auto at = static_cast<std::uint32_t>(graph.calls_.size());
        graph.ranges_[target] = {at, at};
      }
    }
    if (target == IdPositions::NONE) continue;
    const Slot source = graph.slot_of(edges.integer(1));
    if (source == IdPositions::NONE) continue;
    std::int64_t line = NO_LINE;
    if (!edges.is_null(2)) {
      if (!edges.is_integer(2) || edges.integer(2) == NO_LINE) return std::nullopt;
      line = edges.integer(2);
    }
    if (graph.calls_.size() >= std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    graph.calls_.push_back({source, line});
    ++graph.ranges_[target].second;
  }
  return graph;
}

template <typename Take>
void CallGraph::for_each_caller(const std::vector<std::int64_t>& level, Take&& take) {
  // As the caller statements: blocks of ids in level order; within a block by asked id,
  // then the caller's path, start line and id; one record per caller in a source file,
  // with its first call line.
  std::vector<std::int64_t> asked;
  for_each_chunk(
      level,
      [&](std::span<const std::int64_t> chunk) {
        asked.assign(chunk.begin(), chunk.end());
        std::sort(asked.begin(), asked.end());
        for (const std::int64_t id : asked) {
          const auto [begin, end] = ranges_[slot_of(id)];
          scratch_.clear();
          for (std::uint32_t i = begin; i < end; ++i) {
            const Call& call = calls_[i];
            const SymbolInfo& caller = symbols_[call.source];
            if (caller.file == IdPositions::NONE) continue;
            scratch_.push_back(
                {caller.path_rank, caller.start_line, caller.id, call.source, call.line});
          }
          std::sort(scratch_.begin(), scratch_.end(), [](const Ranked& a, const Ranked& b) {
            return std::tie(a.path_rank, a.start_line, a.id) <
                   std::tie(b.path_rank, b.start_line, b.id);
          });
          for (std::size_t i = 0; i < scratch_.size();) {
            std::int64_t line = NO_LINE;
            std::size_t next = i;
            for (; next < scratch_.size() && scratch_[next].slot == scratch_[i].slot; ++next) {
              const std::int64_t at = scratch_[next].line;
              if (at != NO_LINE && (line == NO_LINE || at < line)) line = at;
            }
            take(scratch_[i].slot,
                 line == NO_LINE ? std::nullopt : std::optional<std::int64_t>(line));
            i = next;
          }
        }
      },
      detail::MAX_BOUND_IDS);
}

}  // namespace

std::optional<std::int64_t> QualityQueries::file_count() {
  const auto row = db().fetchone("SELECT COUNT(*) FROM files");
  return row ? std::optional<std::int64_t>(to_int(row->at(0))) : std::nullopt;
}

ImpactAnalysis QualityQueries::analyze_impact(const std::string& fqn, std::int64_t depth,
                                              bool include_tests) {
  return analyze_impact_walk(fqn, depth, include_tests, std::nullopt);
}

ImpactAnalysis QualityQueries::analyze_impact_walk(const std::string& fqn, std::int64_t depth,
                                                   bool include_tests,
                                                   std::optional<std::size_t> memory_threshold) {
  depth = std::max(MIN_DEPTH, std::min(depth, MAX_DEPTH));
  ImpactAnalysis analysis{.fqn = fqn, .impact_score = 0.0, .depth = depth};

  const std::optional<Symbol> symbol = get_symbol_by_fqn(fqn);
  if (!symbol || !symbol->id) return analysis;

  // The analysed symbol counts as visited, so recursion and cycles back to it add nothing.
  std::unordered_set<std::int64_t> visited{*symbol->id};
  std::vector<std::int64_t> current_level{*symbol->id};
  std::set<std::string> all_affected_files;
  std::set<std::string> all_affected_tests;

  // A caller met in a level: whether it is taken into the impact.
  const auto admit = [&](std::int64_t id, bool in_test) {
    if (visited.contains(id)) return false;
    // A test caller left out is not visited: it stays out wherever it is met again, and
    // its own callers are never looked up.
    if (in_test && !include_tests) return false;
    visited.insert(id);
    return true;
  };

  // The call graph in memory, once a level is large enough for it; the transitive
  // callers found through it, whose names are read at the end.
  std::optional<CallGraph> graph;
  bool graph_tried = false;
  std::optional<std::int64_t> edge_estimate;  // the largest edge id: about the edge count
  std::vector<signed char> test_files;        // per file of the graph: -1 not asked yet
  std::vector<bool> affected;                 // per file of the graph: an affected file
  std::vector<std::pair<CallGraph::Slot, std::size_t>> unnamed;

  for (std::int64_t current_depth = 1; current_depth <= depth; ++current_depth) {
    // Ids enter a level only when first visited, so the level holds each id once.
    std::vector<std::int64_t> next_level;
    auto& entries = current_depth == 1 ? analysis.direct_callers : analysis.transitive_callers;

    if (!graph_tried && current_depth > 1) {
      bool in_memory = false;
      if (memory_threshold) {
        in_memory = current_level.size() >= *memory_threshold;
      } else if (current_level.size() >= detail::MAX_BOUND_IDS) {
        if (!edge_estimate) {
          const auto last_edge = db().fetchone("SELECT MAX(id) FROM edges");
          edge_estimate = last_edge ? to_int(last_edge->at(0)) : 0;
        }
        in_memory =
            static_cast<std::int64_t>(current_level.size()) >= *edge_estimate / EDGES_PER_MEMORY_ID;
      }
      if (in_memory) {
        graph_tried = true;
        graph = CallGraph::load(db());
        if (graph) {
          test_files.assign(graph->paths().size(), -1);
          affected.assign(graph->paths().size(), false);
        }
      }
    }

    if (graph) {
      const auto met = [&](CallGraph::Slot slot, std::optional<std::int64_t> call_line) {
        const std::uint32_t file = graph->file(slot);
        const std::string& path = graph->paths()[file];
        if (test_files[file] < 0) test_files[file] = is_test_file(path) ? 1 : 0;
        const bool in_test = test_files[file] != 0;
        const std::int64_t id = graph->id(slot);
        if (!admit(id, in_test)) return;
        if (!affected[file]) {
          affected[file] = true;
          all_affected_files.insert(path);
          if (in_test) all_affected_tests.insert(path);
        }
        next_level.push_back(id);
        unnamed.emplace_back(slot, entries.size());
        entries.push_back(CallerInfo{.id = id,
                                     .line = graph->line(slot),
                                     .call_line = call_line,
                                     .file = path,
                                     .depth = current_depth});
      };
      graph->for_each_caller(current_level, met);
    } else {
      for (const Caller& caller : callers_of(current_level)) {
        const bool in_test = is_test_file(caller.path);
        if (!admit(caller.id, in_test)) continue;
        all_affected_files.insert(caller.path);
        if (in_test) all_affected_tests.insert(caller.path);
        next_level.push_back(caller.id);
        entries.push_back(to_caller_info(caller, current_depth));
      }
    }
    current_level = std::move(next_level);
    if (current_level.empty()) break;
  }

  if (!unnamed.empty()) {
    // Only transitive callers are found in memory; one more read of the symbols names them.
    std::vector<std::uint32_t> entry_of(graph->size(), IdPositions::NONE);
    for (const auto& [slot, entry] : unnamed)
      entry_of[slot] = static_cast<std::uint32_t>(entry);
    RowScan symbols(db(), "SELECT id, name, kind, fqn FROM symbols");
    while (symbols.next()) {
      const CallGraph::Slot slot = graph->slot_of(symbols.integer(0));
      if (slot == IdPositions::NONE || entry_of[slot] == IdPositions::NONE) continue;
      CallerInfo& entry = analysis.transitive_callers[entry_of[slot]];
      entry.name = symbols.text(1);
      entry.kind = symbols.text(2);
      entry.fqn = symbols.text(3);
    }
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

  std::int64_t total_files = file_count().value_or(1);
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
