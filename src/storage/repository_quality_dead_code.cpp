// Dead code: the candidate clause and the paged listing with confidence and reasons.
#include <algorithm>
#include <limits>

#include "storage/repository_quality.h"
#include "utils/language_filter.h"
#include "utils/path_filter.h"

namespace quarry {

namespace detail {

UnusedSymbol unused_symbol(const Row& row) {
  constexpr std::size_t FIRST_FLAG = 6;
  std::vector<std::string> reasons;
  for (std::size_t n = 0; n < LIKELY_REASONS.size(); ++n) {
    if (to_int(row.at(FIRST_FLAG + n)) != 0) reasons.push_back(LIKELY_REASONS[n].second);
  }
  const DeadConfidence confidence =
      reasons.empty() ? DeadConfidence::certain : DeadConfidence::likely;
  return UnusedSymbol{
      {to_text(row.at(0)), to_text(row.at(1)), to_text(row.at(2)), to_text(row.at(3)),
       to_int(row.at(4))},
      confidence,
      std::move(reasons),
      to_int(row.at(5)) != 0,
  };
}

}  // namespace detail

namespace {

// The subquery finding one use of the candidate s from a symbol whose id passes `sources`.
std::string use_of_candidate(const std::string& sources) {
  return fill_placeholder(fill_placeholder(detail::EDGE_USE, "target", "s.id"), "production",
                          sources);
}

// The tests of a using symbol's id against test_symbol (TEST_SYMBOLS), for production and
// for test code.
const std::string PRODUCTION_SOURCE = "NOT IN (SELECT id FROM test_symbol)";
const std::string TEST_SOURCE = "IN (SELECT id FROM test_symbol)";

// TEST_SYMBOLS over the test files, to follow DEAD_CODE_DATA after a comma.
std::string test_symbols() {
  return fill_placeholder(detail::TEST_SYMBOLS, "test",
                          sql_test_path_filter("t", false, "path").first);
}

}  // namespace

std::pair<std::string, Params> QualityQueries::dead_code_candidates(
    const std::string& production, const std::optional<std::string>& component) {
  // The candidate's own file must be production code; its predicate binds nothing.
  const std::string subject = sql_test_path_filter("f", true, "id").first;
  const std::string production_use = use_of_candidate(production);

  std::vector<std::string> conditions{
      "f.language IN (" + placeholders(SOURCE_LANGUAGES.size()) + ")",
      subject,
      "s.kind NOT IN (" + placeholders(detail::NOT_DEAD_CODE_KINDS.size()) + ")",
      "s.is_export = 0",
      // Two literal underscores, any text, two literal underscores: a dunder name.
      R"(s.name NOT LIKE '\_\_%\_\_' ESCAPE '\')",
      "s.name NOT IN (" + placeholders(DEAD_CODE_ENTRY_NAMES.size()) + ")",
      // A decorated definition is reached through its decorator.
      "COALESCE(s.signature, '') NOT LIKE '@%'",
      // No production use that is bound on evidence.
      "NOT EXISTS (" + production_use + " AND NOT " + detail::GUESSED_SQL + ")",
  };
  for (const std::string& unseen : detail::UNSEEN_USES)
    conditions.push_back("NOT " + fill_placeholder(unseen, "production", production));
  const bool by_component = component && !component->empty();
  if (by_component)
    conditions.emplace_back("f.component_id = (SELECT id FROM components WHERE name = ?)");

  std::string candidates = "FROM symbols s JOIN files f ON s.file_id = f.id WHERE ";
  for (std::size_t i = 0; i < conditions.size(); ++i) {
    if (i > 0) candidates += " AND ";
    candidates += conditions[i];
  }

  Params params;
  append_texts(params, SOURCE_LANGUAGES);
  append_texts(params, detail::NOT_DEAD_CODE_KINDS);
  append_texts(params, DEAD_CODE_ENTRY_NAMES);
  if (by_component) params.emplace_back(*component);
  return {std::move(candidates), std::move(params)};
}

DeadCodePage QualityQueries::get_dead_code(const DeadCodeOptions& options) {
  if (std::optional<DeadCodePage> page = scan_dead_code(options)) return std::move(*page);
  return dead_code_by_statements(options);
}

DeadCodePage QualityQueries::dead_code_by_statements(const DeadCodeOptions& options) {
  const std::string& production = PRODUCTION_SOURCE;
  const auto [candidates, clause_params] = dead_code_candidates(production, options.component);
  const std::string data = detail::DEAD_CODE_DATA + ", " + test_symbols();

  // Sorted, so that the same names in any order bind the same text.
  std::vector<std::string> members = options.runtime_members;
  std::sort(members.begin(), members.end());
  Params params{json_string_array(members), json_string_array(DISPATCH_PREFIXES)};
  params.insert(params.end(), clause_params.begin(), clause_params.end());

  std::string flags;
  std::string likely;
  for (std::size_t n = 0; n < detail::LIKELY_REASONS.size(); ++n) {
    const std::string column = "r" + std::to_string(n);
    if (n > 0) {
      flags += ", ";
      likely += " OR ";
    }
    flags += fill_placeholder(detail::LIKELY_REASONS[n].first, "production", production) + " AS " +
             column;
    likely += column;
  }

  // The candidate filter runs once: the candidates are materialized in the order of the
  // filter's scan, the names of guessed uses are read for their names alone, and the ranked
  // statement orders every candidate by its flags, path and line and counts them all beside
  // the page's ids and flags; the texts and the test use are then read for the page's rows
  // alone. Candidates equal in the three keys come by file id, kind and id: the order in
  // which the filter reads them (the files by id, the symbols of each by idx_symbols_file).
  const std::string ranked =
      data +
      ", candidate AS MATERIALIZED (SELECT s.id AS id, s.name AS name, f.path AS path, "
      "s.start_line AS start_line, f.id AS file_id, s.kind AS kind " +
      candidates + "), " + fill_placeholder(detail::GUESSED_NAMES, "production", production) +
      " SELECT id, r0, r1, r2, COUNT(*) OVER () FROM (SELECT s.id AS id, s.path AS path, "
      "s.start_line AS start_line, s.file_id AS file_id, s.kind AS kind, " +
      flags + " FROM candidate s) ORDER BY (" + likely +
      "), path, start_line, file_id, kind, id LIMIT ? OFFSET ?";
  // One row more than the page decides whether more follow; the largest limit has no room
  // for it, and no index holds that many rows anyway.
  const std::int64_t limit = std::max<std::int64_t>(options.limit, 0);
  const std::int64_t fetch =
      options.limit == std::numeric_limits<std::int64_t>::max() ? options.limit : options.limit + 1;
  Params ranked_params = params;
  ranked_params.emplace_back(fetch);
  ranked_params.emplace_back(options.offset);
  const std::vector<Row> rows = db().fetchall(ranked, ranked_params);

  DeadCodePage page;
  page.truncated = static_cast<std::int64_t>(rows.size()) > limit;
  if (!rows.empty()) {
    page.total_count = to_int(rows.front().at(4));
  } else if (options.offset > 0) {
    // Past the last candidate the ranked statement has no row to carry the count.
    const auto count = db().fetchone(data + " SELECT COUNT(*) " + candidates, params);
    page.total_count = count ? to_int(count->at(0)) : 0;
  }

  const std::size_t shown = static_cast<std::size_t>(
      std::min<std::int64_t>(limit, static_cast<std::int64_t>(rows.size())));
  if (shown == 0) return page;
  std::string ids = "[";
  for (std::size_t i = 0; i < shown; ++i) {
    if (i > 0) ids += ',';
    ids += std::to_string(to_int(rows[i].at(0)));
  }
  ids += ']';
  const std::string texts =
      "WITH " + test_symbols() +
      " SELECT j.key, s.fqn, s.name, s.kind, f.path, s.start_line, EXISTS (" +
      use_of_candidate(TEST_SOURCE) +
      ") FROM json_each(?) j JOIN symbols s ON s.id = j.value JOIN files f ON f.id = s.file_id "
      "ORDER BY j.key";
  const std::vector<Row> details = db().fetchall(texts, {Value{ids}});

  page.symbols.reserve(details.size());
  for (const Row& detail_row : details) {
    // The page row's texts and test use, then its flags: the columns unused_symbol reads.
    const Row& ranked_row = rows.at(static_cast<std::size_t>(to_int(detail_row.at(0))));
    Row row(detail_row.begin() + 1, detail_row.end());
    row.insert(row.end(), ranked_row.begin() + 1, ranked_row.begin() + 4);
    page.symbols.push_back(detail::unused_symbol(row));
  }
  return page;
}

}  // namespace quarry
