// The quality queries of the index: dead code, dependency cycles, callers and impact.
//
// QualityQueries owns no state. Every operation reads the index through the repository's
// database facade and a few host operations that the repository supplies (declared pure
// here), and returns plain records that belong to the caller. Nothing is ever written.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "models/symbol.h"
#include "storage/database.h"
#include "storage/repository_quality_cycles.h"
#include "storage/repository_types.h"
#include "storage/sql_text.h"

namespace quarry {

// A symbol with a call edge into a symbol that was asked about. Structured bindings give
// the ten fields by position.
struct Caller {
  std::int64_t of;  // the asked symbol (the callee)
  std::int64_t id;  // the calling symbol
  std::string name;
  std::string kind;
  std::string fqn;
  std::string path;        // the caller's file
  std::int64_t line;       // the caller's own start line
  std::string resolution;  // the smallest resolution among its calls into `of`
  std::int64_t total;      // how many callers of this kind `of` has, before any cap
  std::optional<std::int64_t> call_line = std::nullopt;  // its first call site, if known

  bool operator==(const Caller&) const = default;
};

// How sure the index is that nothing uses a dead-code candidate.
enum class DeadConfidence { certain, likely };

// "certain" or "likely".
constexpr std::string_view to_string(DeadConfidence confidence) {
  return confidence == DeadConfidence::certain ? "certain" : "likely";
}

// A dead-code candidate with its confidence, the reasons why it is only likely dead (empty
// exactly when certain) and whether a test uses it.
struct UnusedSymbol : DeadSymbol {
  DeadConfidence confidence;
  std::vector<std::string> reasons;
  bool used_by_tests;

  bool operator==(const UnusedSymbol&) const = default;
};

// A strongly connected set of files or components, with one shortest cycle through its
// first member: cycle.front() == cycle.back() == nodes.front().
struct CycleComponent : CircularDependency {
  std::vector<std::string> cycle;

  bool operator==(const CycleComponent&) const = default;
};

// The dependencies between production files over code edges that are no guess: `paths`
// ascending, each once, and the pairs (dependent, depended on) as positions in `paths`,
// ascending, each once.
struct FileDependencies {
  std::vector<std::string> paths;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs;
};

struct CallersOptions {
  bool guessed = false;               // guessed callers instead of proven ones
  std::optional<std::int64_t> limit;  // at most this many callers per asked symbol
};

struct DeadCodeOptions {
  std::optional<std::string> component;  // restrict to one component (empty: all)
  std::int64_t limit = 100;
  std::int64_t offset = 0;
  std::vector<std::string> runtime_members;  // method names of the runtime's own values
};

struct DeadCodePage {
  std::vector<UnusedSymbol> symbols;
  std::int64_t total_count = 0;
  bool truncated = false;

  bool operator==(const DeadCodePage&) const = default;
};

// Names of entry points: a symbol of either name is never dead code.
inline constexpr std::array<std::string_view, 2> DEAD_CODE_ENTRY_NAMES{"main", "__main__"};
// Name prefixes of dispatch families, whose members are found by name at run time.
inline constexpr std::array<std::string_view, 4> DISPATCH_PREFIXES{"_handle_", "handle_", "visit_",
                                                                   "do_"};
// The least number of same-kind symbols of one file sharing a prefix that form a family.
inline constexpr std::int64_t DISPATCH_FAMILY_SIZE = 3;

class QualityQueries {
 public:
  virtual ~QualityQueries() = default;

  // The callers of `symbol_ids` (any order, repeats allowed), one record per pair of asked
  // symbol and calling symbol, over call edges whose resolution is no guess (or, with
  // `guessed`, is one). Only callers in files of a source language are listed. With a
  // limit, at most that many callers per asked symbol, the first by path, start line and
  // id; `total` still counts them all. Asked ids go to the database in blocks of 900 in
  // first-occurrence order, one statement per block; within a block the records are
  // ordered by asked id, then path, start line and caller id.
  std::vector<Caller> callers_of(const std::vector<std::int64_t>& symbol_ids,
                                 const CallersOptions& options = {});

  // What changing the symbol named `fqn` would affect: its proven callers walked breadth
  // first up to `depth` levels (clamped to 1..5), test callers skipped unless
  // `include_tests`, the affected files, components and tests (sorted), and a score in
  // [0, 1]. An unknown name gives an empty analysis with score 0.
  ImpactAnalysis analyze_impact(const std::string& fqn, std::int64_t depth = 3,
                                bool include_tests = false);

  // analyze_impact, with the levels looked up in memory rather than by callers_of from the
  // first large one on: the source files and the symbols, with their names, are read once,
  // and the proven calls into each asked symbol are searched in the edges-by-target index.
  // The first level is large when the walk goes deeper than one level and the analysed
  // symbol has at least `memory_threshold` proven calls, a later level when it holds at
  // least that many ids; without a threshold, when that number is large beside the
  // index's edges. Both ways give the same analysis. The walk reads one snapshot of the
  // index: one read transaction, unless the connection is in a transaction already.
  ImpactAnalysis analyze_impact_walk(const std::string& fqn, std::int64_t depth, bool include_tests,
                                     std::optional<std::size_t> memory_threshold);

  // One page of dead code: the definitions of production source files that nothing in
  // production code uses, other than through a guess between same-named definitions, and
  // that are no entry point, export, module-level state or symbol whose uses the index
  // cannot see. Certain candidates come before likely ones, each by path and line; the
  // page skips `offset` candidates in that order and holds at most `limit`. `total_count`
  // counts every candidate (of the component, when one is named; an unknown name has
  // none) and `truncated` tells whether at least one follows the page. Methods named like
  // one of `runtime_members` are never listed; their order and repeats do not matter.
  // Candidates equal in confidence, path and line come by file id, kind and id. Requires
  // `limit` and `offset` of zero or more (a negative value gives an unspecified page, never
  // undefined behaviour). The listing of the whole index is scan_dead_code's; a component's,
  // or one that scan_dead_code leaves to the statements, is dead_code_by_statements'.
  DeadCodePage get_dead_code(const DeadCodeOptions& options = {});

  // get_dead_code by statements: the ranked statement (every candidate filtered in SQL,
  // ordered, counted, and the page's ids and flags returned), then the texts and test use
  // of the page's rows; past the last candidate, a count instead. At most two statements.
  DeadCodePage dead_code_by_statements(const DeadCodeOptions& options);

  // get_dead_code over the whole index from one sequential read each of the files, the
  // symbols, the edges and the pending references, the listing decided in memory (the
  // hierarchy edges of the classes that a method's rules ask about are looked up by
  // source), in one read transaction. Gives the same page as dead_code_by_statements, or
  // nothing, leaving the listing to it, when a component is named, a symbols row breaks the
  // schema (a kind, name or fqn that is NULL, a start line that is no integer) or the
  // symbols have more than 64 kinds.
  std::optional<DeadCodePage> scan_dead_code(const DeadCodeOptions& options);

  // The dependency cycles of production code between components (`level` "component")
  // or between files (any other level): one entry per strongly connected component of two
  // or more members, largest first, then by first member.
  std::vector<CycleComponent> find_circular_dependencies(std::string_view level = "component");

  // The dependency graph that find_circular_dependencies condenses: between components
  // (`level` "component", from get_component_dependencies(true)) or between production
  // files over code edges that are no guess (any other level). Every node of a
  // dependency is a key, keys in order of first occurrence, a dependent before what it
  // depends on.
  DependencyGraph dependency_graph(std::string_view level = "component");

  // The distinct pairs (dependent file, file depended on) over code edges that are no
  // guess between two different production files, from one statement that joins them in
  // SQL, in its row order.
  std::vector<std::pair<std::string, std::string>> production_file_dependencies();

  // The same dependencies as production_file_dependencies, from one sequential read of
  // the production files, of the symbols' files and of the code edges that are no guess,
  // joined in memory. This is what the file-level graph is built from.
  FileDependencies scan_file_dependencies();

  // Host operations the queries rely on; the repository supplies them.
  virtual Database& db() = 0;
  // Row counts of the index.
  virtual std::map<std::string, std::int64_t> get_stats() = 0;
  // The number of files in the index, the one statistic the impact score reads, or nothing
  // when the host cannot tell. Counts the files table alone.
  virtual std::optional<std::int64_t> file_count();
  // The symbol with that fqn (smallest id), or nothing.
  virtual std::optional<Symbol> get_symbol_by_fqn(const std::string& fqn) = 0;
  // Dependencies between components over code edges that are no guess.
  virtual std::vector<ComponentDependency> get_component_dependencies(bool exclude_test_files) = 0;

 protected:
  // Whether the file at `path` is a test file.
  virtual bool is_test_file(const std::string& path) = 0;
  // The components of the files with these paths.
  virtual std::vector<std::string> get_components_for_files(
      const std::vector<std::string>& paths) = 0;

  // The impact score of a change that affects these many files and components, rounded
  // to three decimals; reads file_count() only when `affected_file_count` is not 0.
  double calculate_impact_score(std::int64_t affected_file_count,
                                std::int64_t affected_component_count);

  // The candidate clause of the dead-code listing ("FROM symbols s JOIN files f ... WHERE
  // ...") and the values of its placeholders, in order. `production` is the test of a
  // using symbol's id (as in detail::EDGE_USE) that holds for production code; an
  // empty `component` means all.
  static std::pair<std::string, Params> dead_code_candidates(
      const std::string& production, const std::optional<std::string>& component);
};

namespace detail {

// "e.resolution IN ('ambiguous', 'model')": the edge aliased e is a guess.
extern const std::string GUESSED_SQL;
// The statement of production_file_dependencies.
std::string production_file_dependencies_sql();
// The most symbol ids one caller statement binds.
inline constexpr std::size_t MAX_BOUND_IDS = MAX_BOUND_VALUES;
// "('inherits', 'implements')", to follow "b.kind IN ".
extern const std::string HIERARCHY_SQL;
// The fqn of the parent of the symbol aliased s.
extern const std::string PARENT_FQN;
// A subquery finding one edge aliased e into {target} from a symbol aliased u whose file,
// aliased uf, satisfies {production}.
extern const std::string PRODUCTION_USE;
// The dead-code listing's form of PRODUCTION_USE: one edge aliased e into {target} whose
// source id satisfies {production}, a test of the form "IN (...)" or "NOT IN (...)". It
// reads the edge alone (idx_edges_target covers target, resolution and source), which the
// indexer's indexes allow: every edge leaves a symbol of one of their files.
extern const std::string EDGE_USE;
// The kinds that are never dead code.
inline constexpr std::array<std::string_view, 7> NOT_DEAD_CODE_KINDS{
    "constant", "variable", "file", "section", "import", "module", TOPLEVEL_KIND};
// The common table expressions of the dead-code statements (runtime members, prefixes).
extern const std::string DEAD_CODE_DATA;
// A common table expression to follow DEAD_CODE_DATA (after a comma): test_symbol(id), the
// ids of the symbols of the files for which {test} holds (a predicate on the files row
// aliased t), read once per statement.
extern const std::string TEST_SYMBOLS;
// A common table expression to follow one named candidate with a column name (after a
// comma): guessed_name(name, low_id, high_id), one row per candidate name that has guessed
// uses from sources whose id satisfies {production} (as in EDGE_USE), with the lowest
// and highest id of the definitions so used. Built once per statement, so a flag on a
// candidate's name costs one lookup.
extern const std::string GUESSED_NAMES;
// Conditions under which the uses of the symbol aliased s cannot be seen in the index.
extern const std::array<std::string, 6> UNSEEN_USES;
// Conditions under which a candidate is only likely dead, each with its reason, on the
// columns id and name of the row aliased s. The second reads guessed_name, so a statement
// testing it defines GUESSED_NAMES.
extern const std::array<std::pair<std::string, std::string>, 3> LIKELY_REASONS;

// One row of the dead-code page (fqn, name, kind, path, start_line, tested, r0, r1, r2) as
// a record: the reasons are those of LIKELY_REASONS whose flag is set, in that order, and
// the confidence is likely exactly when one is.
UnusedSymbol unused_symbol(const Row& row);

}  // namespace detail

}  // namespace quarry
