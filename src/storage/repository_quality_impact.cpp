// Impact analysis: the proven callers of a symbol walked breadth first, and the score of
// what they affect.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>
#include <set>
#include <unordered_set>

#include "models/edge.h"
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
// A level of at least 900 ids (for the first level, proven calls into the symbol) is
// looked up in memory once it also holds a thousandth of the index's edges: reading the
// symbols costs about as much as the caller statements for that many ids (on 1,000,000
// symbols and 5,000,000 edges, 0.35-0.4 s against about 15 us a caller found by
// statements).
constexpr std::int64_t EDGES_PER_MEMORY_ID = 1000;
// The symbols whose calls one run of the lookup statement reads.
constexpr std::size_t BATCH = 32;

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

// The symbols of the index held in memory, and the proven calls into a symbol looked up
// through the edges-by-target index one symbol at a time (inside the walk's read
// transaction, each lookup is a search of that index and nothing more). It answers a level
// of the walk exactly as callers_of does (the same records in the same order), and holds
// the name, kind and fqn of every symbol that can be a caller.
class CallerLookup {
 public:
  using Slot = std::uint32_t;
  // A caller of an asked symbol, with the first line that calls it.
  struct Found {
    Slot slot;
    bool has_line;
    std::int64_t line;
  };

  // Reads the source files and the symbols, each once. Nothing when a symbol of a source
  // file has a start line that is no integer (the caller statement would order it
  // otherwise than this lookup): the walk then stays with callers_of.
  static std::unique_ptr<CallerLookup> load(Database& db);

  // Appends to `found` the callers that callers_of(level) gives, in its order: one per
  // pair of asked symbol and caller. Returns false, `found` left as it was, when a call line is
  // neither an integer nor NULL (the statement would order and convert it otherwise). Requires
  // `level` to hold distinct ids of symbols.
  bool callers(const std::vector<std::int64_t>& level, std::vector<Found>& found);

  Slot slot_of(std::int64_t id) const { return slots_.find(id); }
  std::int64_t id(Slot slot) const { return symbols_[slot].id; }
  std::int64_t line(Slot slot) const { return symbols_[slot].start_line; }
  // The symbol's file, a position in paths().
  std::uint32_t file(Slot slot) const { return symbols_[slot].file; }
  // The order of a file's path among paths(); equal paths share a rank.
  std::uint32_t path_rank(std::uint32_t file) const { return path_ranks_[file]; }
  const std::vector<std::string>& paths() const { return paths_; }
  std::size_t size() const { return symbols_.size(); }
  // The name, kind and fqn of a symbol of a source file.
  std::string_view name(Slot slot) const { return text(slot, 0); }
  std::string_view kind(Slot slot) const { return text(slot, 1); }
  std::string_view fqn(Slot slot) const { return text(slot, 2); }

 private:
  // What the order of callers reads of a symbol, in one place.
  struct SymbolInfo {
    std::int64_t id;
    std::int64_t start_line;
    std::uint32_t file;       // IdPositions::NONE: not in a source file, never a caller
    std::uint32_t path_rank;  // the order of its file's path
  };
  // Where a symbol's name, kind and fqn are, one after the other, in a block of blocks_.
  struct Texts {
    const char* at;
    std::array<std::uint32_t, 3> sizes;
  };
  // Blocks of texts that never move once written.
  static constexpr std::size_t BLOCK_SIZE = std::size_t{4} << 20;
  // One caller of an asked symbol while its callers are ordered.
  struct Ranked {
    std::uint32_t asked;  // the callee's place in its batch
    std::uint32_t path_rank;
    std::int64_t start_line;
    std::int64_t id;
    Slot slot;
    bool has_line;
    std::int64_t line;
  };

  CallerLookup(Database& db, const std::vector<std::int64_t>& ids);

  std::string_view text(Slot slot, int part) const {
    const Texts& texts = texts_[slot];
    const char* at = texts.at;
    for (int i = 0; i < part; ++i)
      at += texts.sizes[i];
    return std::string_view(at, texts.sizes[part]);
  }

  IdPositions slots_;
  std::vector<SymbolInfo> symbols_;
  std::vector<Texts> texts_;  // per symbol; empty outside the source files
  // The names, kinds and fqns of the source files' symbols.
  std::vector<std::unique_ptr<char[]>> blocks_;
  std::vector<std::string> paths_;  // the source files' paths
  std::vector<std::uint32_t> path_ranks_;
  RowScan calls_;                // the proven calls into one symbol: caller id and line
  std::vector<Ranked> scratch_;  // the calls into one asked symbol
  std::vector<Found> callers_;   // the callers of a level's symbols, by asked id
};

// " AND e.kind = 'call' AND ...": the edge aliased e is a call that is no guess. The
// guessed resolutions are left out one comparison each (a NULL resolution passes none, as
// with NOT IN), which SQLite runs without building the list at each run.
std::string proven_call_sql() {
  std::string sql = " AND e.kind = 'call'";
  for (const std::string_view resolution : GUESSED_RESOLUTIONS) {
    sql += " AND e.resolution <> '";
    sql += resolution;
    sql += "'";
  }
  return sql;
}

// "FROM edges e WHERE ..." the proven calls into the symbol bound to the placeholder.
std::string proven_calls_into_sql() {
  return "FROM edges e WHERE e.target_id = ?" + proven_call_sql();
}

// The proven calls into the BATCH symbols bound to the placeholders: the callee, the
// caller and the line, the same rows as proven_calls_into_sql gives for each. One run
// searches the index once per symbol, without the statement's setup per symbol.
std::string proven_calls_into_batch_sql() {
  return "SELECT e.target_id, e.source_id, e.line FROM edges e WHERE e.target_id IN (" +
         placeholders(BATCH) + ")" + proven_call_sql();
}

CallerLookup::CallerLookup(Database& db, const std::vector<std::int64_t>& ids)
    : slots_(ids), calls_(db, proven_calls_into_batch_sql(), Params(BATCH, std::int64_t{0})) {}

std::unique_ptr<CallerLookup> CallerLookup::load(Database& db) {
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

  // The names are read with the rest, rather than for the callers found by a second read
  // of the table: that costs SQLite a whole scan, copying them all here far less.
  std::vector<SymbolInfo> symbols;
  std::vector<Texts> texts;
  // The largest id is about the number of symbols (one search of the table), so the
  // tables of a million symbols are not copied as they grow.
  if (const auto last = db.fetchone("SELECT MAX(id) FROM symbols")) {
    constexpr std::int64_t MOST_RESERVED = std::int64_t{1} << 26;
    const std::int64_t estimate = std::clamp(to_int(last->at(0)), std::int64_t{0}, MOST_RESERVED);
    symbols.reserve(static_cast<std::size_t>(estimate));
    texts.reserve(static_cast<std::size_t>(estimate));
  }
  std::vector<std::unique_ptr<char[]>> blocks;
  char* free = nullptr;  // the free part of the last block
  std::size_t left = 0;
  {
    RowScan scan(db, "SELECT id, file_id, start_line, name, kind, fqn FROM symbols");
    while (scan.next()) {
      const std::uint32_t file =
          scan.is_integer(1) ? file_positions.find(scan.integer(1)) : IdPositions::NONE;
      if (file == IdPositions::NONE) {
        symbols.push_back({scan.integer(0), 0, file, 0});
        texts.push_back({nullptr, {0, 0, 0}});
        continue;
      }
      if (!scan.is_integer(2)) return nullptr;
      symbols.push_back({scan.integer(0), scan.integer(2), file, path_ranks[file]});
      const std::array<std::string_view, 3> parts{scan.text(3), scan.text(4), scan.text(5)};
      const std::size_t size = parts[0].size() + parts[1].size() + parts[2].size();
      if (size > left) {
        left = std::max(size, BLOCK_SIZE);
        free = blocks.emplace_back(new char[left]).get();
      }
      Texts& at = texts.emplace_back(Texts{free, {}});
      for (std::size_t part = 0; part < parts.size(); ++part) {
        at.sizes[part] = static_cast<std::uint32_t>(parts[part].size());
        std::copy(parts[part].begin(), parts[part].end(), free);
        free += parts[part].size();
      }
      left -= size;
    }
  }
  std::vector<std::int64_t> ids(symbols.size());
  for (std::size_t slot = 0; slot < symbols.size(); ++slot)
    ids[slot] = symbols[slot].id;
  std::unique_ptr<CallerLookup> lookup(new CallerLookup(db, ids));
  lookup->symbols_ = std::move(symbols);
  lookup->texts_ = std::move(texts);
  lookup->blocks_ = std::move(blocks);
  lookup->paths_ = std::move(paths);
  lookup->path_ranks_ = std::move(path_ranks);
  return lookup;
}

bool CallerLookup::callers(const std::vector<std::int64_t>& level, std::vector<Found>& found) {
  // The symbols are looked up in ascending id order over the whole level, so that the
  // index is read front to back once: the ids of one block of the statements spread over
  // all of it, and on a large index it is larger than SQLite's page cache.
  std::vector<std::uint32_t> order(level.size());
  for (std::uint32_t i = 0; i < order.size(); ++i)
    order[i] = i;
  std::sort(order.begin(), order.end(),
            [&level](std::uint32_t a, std::uint32_t b) { return level[a] < level[b]; });
  // The callers of level[i]: callers_[runs[i].first .. runs[i].second).
  std::vector<std::pair<std::size_t, std::size_t>> runs(level.size());
  callers_.clear();
  std::array<std::int64_t, BATCH> batch{};
  for (std::size_t start = 0; start < order.size(); start += BATCH) {
    const std::size_t count = std::min(BATCH, order.size() - start);
    for (std::size_t i = 0; i < BATCH; ++i)
      batch[i] = level[order[start + std::min(i, count - 1)]];  // the last one repeated
    scratch_.clear();
    calls_.rerun(batch.data(), batch.size());
    while (calls_.next()) {
      // A caller id that is no integer names no symbol, as in the statement's join.
      if (!calls_.is_integer(1)) continue;
      const Slot slot = slot_of(calls_.integer(1));
      if (slot == IdPositions::NONE) continue;
      const SymbolInfo& caller = symbols_[slot];
      if (caller.file == IdPositions::NONE) continue;
      const bool has_line = !calls_.is_null(2);
      if (has_line && !calls_.is_integer(2)) return false;
      // The asked symbols of a batch ascend: the callee's place among them.
      const std::int64_t callee = calls_.integer(0);
      const auto asked = static_cast<std::uint32_t>(
          std::lower_bound(batch.begin(), batch.begin() + static_cast<std::ptrdiff_t>(count),
                           callee) -
          batch.begin());
      scratch_.push_back({asked, caller.path_rank, caller.start_line, caller.id, slot, has_line,
                          has_line ? calls_.integer(2) : 0});
    }
    // Per asked symbol, one record per caller in a source file, ordered by path, start
    // line and id, with its least call line.
    std::sort(scratch_.begin(), scratch_.end(), [](const Ranked& a, const Ranked& b) {
      return std::tie(a.asked, a.path_rank, a.start_line, a.id) <
             std::tie(b.asked, b.path_rank, b.start_line, b.id);
    });
    std::size_t i = 0;
    for (std::uint32_t asked = 0; asked < count; ++asked) {
      const std::uint32_t position = order[start + asked];
      runs[position].first = callers_.size();
      while (i < scratch_.size() && scratch_[i].asked == asked) {
        Found caller{.slot = scratch_[i].slot, .has_line = false, .line = 0};
        for (; i < scratch_.size() && scratch_[i].asked == asked && scratch_[i].slot == caller.slot;
             ++i) {
          const Ranked& call = scratch_[i];
          if (call.has_line && (!caller.has_line || call.line < caller.line)) {
            caller.has_line = true;
            caller.line = call.line;
          }
        }
        callers_.push_back(caller);
      }
      runs[position].second = callers_.size();
    }
  }

  // Given as the statements give them: blocks of ids in level order, each by asked id.
  for (std::size_t start = 0; start < level.size(); start += detail::MAX_BOUND_IDS) {
    const auto block_end = order.begin() + static_cast<std::ptrdiff_t>(std::min(
                                               level.size(), start + detail::MAX_BOUND_IDS));
    std::iota(order.begin() + static_cast<std::ptrdiff_t>(start), block_end,
              static_cast<std::uint32_t>(start));
    std::sort(order.begin() + static_cast<std::ptrdiff_t>(start), block_end,
              [&level](std::uint32_t a, std::uint32_t b) { return level[a] < level[b]; });
    for (auto at = order.begin() + static_cast<std::ptrdiff_t>(start); at != block_end; ++at) {
      const auto [begin, end] = runs[*at];
      found.insert(found.end(), callers_.begin() + static_cast<std::ptrdiff_t>(begin),
                   callers_.begin() + static_cast<std::ptrdiff_t>(end));
    }
  }
  return true;
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
  // Every read of the walk sees one snapshot, and the lookups run many times take no lock.
  const detail::ReadTransaction snapshot(db());

  const std::optional<Symbol> symbol = get_symbol_by_fqn(fqn);
  if (!symbol || !symbol->id) return analysis;

  // The analysed symbol counts as visited, so recursion and cycles back to it add nothing.
  // Once the symbols are in memory, visits are marked per symbol there instead.
  std::unordered_set<std::int64_t> visited{*symbol->id};
  std::vector<std::int64_t> current_level{*symbol->id};
  std::set<std::string> all_affected_files;
  std::set<std::string> all_affected_tests;

  // The symbols in memory, once a level is large enough for them.
  std::unique_ptr<CallerLookup> lookup;
  bool lookup_tried = false;
  bool in_memory = false;           // false again after a call line that only the statement reads
  std::vector<bool> visited_slots;  // per symbol in memory
  // Per file in memory: whether it was asked for being a test file, is one, is affected.
  enum : std::uint8_t { ASKED = 1, TEST = 2, AFFECTED = 4 };
  std::vector<std::uint8_t> file_flags;
  // The callers found in memory, with their depths; the first `recorded` of them are in
  // the analysis.
  std::vector<CallerLookup::Found> found;
  std::vector<std::int64_t> found_depths;
  std::size_t recorded = 0;

  // Whether `id` is met for the first time; marks it met.
  const auto first_visit = [&](std::int64_t id) {
    if (lookup) {
      const CallerLookup::Slot slot = lookup->slot_of(id);
      if (slot != IdPositions::NONE) {
        if (visited_slots[slot]) return false;
        visited_slots[slot] = true;
        return true;
      }
    }
    return visited.insert(id).second;
  };
  // Records the callers found in memory, in the order found.
  const auto record_found = [&]() {
    std::size_t direct = 0;
    for (std::size_t i = recorded; i < found.size(); ++i)
      direct += found_depths[i] == 1 ? 1 : 0;
    analysis.direct_callers.reserve(analysis.direct_callers.size() + direct);
    analysis.transitive_callers.reserve(analysis.transitive_callers.size() + found.size() -
                                        recorded - direct);
    for (; recorded < found.size(); ++recorded) {
      const CallerLookup::Found& caller = found[recorded];
      const std::int64_t at_depth = found_depths[recorded];
      auto& entries = at_depth == 1 ? analysis.direct_callers : analysis.transitive_callers;
      entries.push_back(CallerInfo{
          .id = lookup->id(caller.slot),
          .name = std::string(lookup->name(caller.slot)),
          .kind = std::string(lookup->kind(caller.slot)),
          .fqn = std::string(lookup->fqn(caller.slot)),
          .line = lookup->line(caller.slot),
          .call_line = caller.has_line ? std::optional<std::int64_t>(caller.line) : std::nullopt,
          .file = lookup->paths()[lookup->file(caller.slot)],
          .depth = at_depth});
    }
  };
  // Whether the walk reads the symbols into memory at this level: it looks up `asked`
  // symbols, or for the first level, the callers of as many proven calls.
  std::optional<std::int64_t> edge_estimate;  // the largest edge id: about the edge count
  const auto large = [&](std::size_t asked) {
    if (memory_threshold) return asked >= *memory_threshold;
    if (asked < detail::MAX_BOUND_IDS) return false;
    if (!edge_estimate) {
      const auto last_edge = db().fetchone("SELECT MAX(id) FROM edges");
      edge_estimate = last_edge ? to_int(last_edge->at(0)) : 0;
    }
    return static_cast<std::int64_t>(asked) >= *edge_estimate / EDGES_PER_MEMORY_ID;
  };

  std::vector<CallerLookup::Found> level_callers;
  for (std::int64_t current_depth = 1; current_depth <= depth; ++current_depth) {
    // Ids enter a level only when first visited, so the level holds each id once.
    std::vector<std::int64_t> next_level;

    if (!lookup_tried && (current_depth > 1 || depth > 1)) {
      std::size_t asked = current_level.size();
      if (current_depth == 1) {
        const auto calls =
            db().fetchone("SELECT COUNT(*) " + proven_calls_into_sql(), {*symbol->id});
        asked = calls ? static_cast<std::size_t>(to_int(calls->at(0))) : 0;
      }
      if (large(asked)) {
        lookup_tried = true;
        lookup = CallerLookup::load(db());
        if (lookup) {
          in_memory = true;
          visited_slots.assign(lookup->size(), false);
          for (const std::int64_t id : visited) {
            const CallerLookup::Slot slot = lookup->slot_of(id);
            if (slot != IdPositions::NONE) visited_slots[slot] = true;
          }
          file_flags.assign(lookup->paths().size(), 0);
        }
      }
    }

    bool walked = false;
    if (in_memory) {
      level_callers.clear();
      if (lookup->callers(current_level, level_callers)) {
        walked = true;
        for (const CallerLookup::Found& caller : level_callers) {
          const std::uint32_t file = lookup->file(caller.slot);
          std::uint8_t& flags = file_flags[file];
          if (!(flags & ASKED)) {
            flags |= ASKED;
            if (is_test_file(lookup->paths()[file])) flags |= TEST;
          }
          // A test caller left out is not visited: it stays out wherever it is met again,
          // and its own callers are never looked up.
          if ((flags & TEST) && !include_tests) continue;
          if (visited_slots[caller.slot]) continue;
          visited_slots[caller.slot] = true;
          flags |= AFFECTED;
          next_level.push_back(lookup->id(caller.slot));
          found.push_back(caller);
          found_depths.push_back(current_depth);
        }
      } else {
        in_memory = false;
      }
    }
    if (!walked) {
      // Records found in memory come first, in the order of their levels.
      record_found();
      auto& entries = current_depth == 1 ? analysis.direct_callers : analysis.transitive_callers;
      for (const Caller& caller : callers_of(current_level)) {
        const bool in_test = is_test_file(caller.path);
        if (in_test && !include_tests) continue;
        if (!first_visit(caller.id)) continue;
        all_affected_files.insert(caller.path);
        if (in_test) all_affected_tests.insert(caller.path);
        next_level.push_back(caller.id);
        entries.push_back(to_caller_info(caller, current_depth));
      }
    }
    current_level = std::move(next_level);
    if (current_level.empty()) break;
  }
  record_found();

  // The files met in memory, in path order, joined with those met by statements.
  const auto merge_files = [&](std::uint8_t flag, const std::set<std::string>& by_statements) {
    std::vector<std::uint32_t> files;
    for (std::uint32_t file = 0; file < file_flags.size(); ++file) {
      if ((file_flags[file] & flag) == flag) files.push_back(file);
    }
    std::sort(files.begin(), files.end(), [&](std::uint32_t a, std::uint32_t b) {
      return lookup->path_rank(a) < lookup->path_rank(b);
    });
    std::vector<std::string> merged;
    merged.reserve(files.size() + by_statements.size());
    auto next = by_statements.begin();
    for (std::size_t i = 0; i < files.size(); ++i) {
      if (i > 0 && lookup->path_rank(files[i]) == lookup->path_rank(files[i - 1])) continue;
      const std::string& path = lookup->paths()[files[i]];
      for (; next != by_statements.end() && *next < path; ++next)
        merged.push_back(*next);
      if (next != by_statements.end() && *next == path) ++next;
      merged.push_back(path);
    }
    merged.insert(merged.end(), next, by_statements.end());
    return merged;
  };
  analysis.affected_files = merge_files(AFFECTED, all_affected_files);
  analysis.affected_tests = merge_files(AFFECTED | TEST, all_affected_tests);
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
