// The caller lookup: who calls a set of symbols, proven or guessed.
#include <unordered_set>

#include "storage/repository_quality.h"
#include "utils/language_filter.h"

namespace quarry {

namespace {

Caller to_caller(const Row& row) {
  return Caller{.of = to_int(row.at(0)),
                .id = to_int(row.at(1)),
                .name = to_text(row.at(2)),
                .kind = to_text(row.at(3)),
                .fqn = to_text(row.at(4)),
                .path = to_text(row.at(5)),
                .line = to_int(row.at(6)),
                .resolution = to_text(row.at(7)),
                .total = to_int(row.at(8)),
                .call_line = to_optional_int(row.at(9))};
}

}  // namespace

std::vector<Caller> QualityQueries::callers_of(const std::vector<std::int64_t>& symbol_ids,
                                               const CallersOptions& options) {
  const std::string kind_sql = options.guessed ? detail::GUESSED_SQL : "NOT " + detail::GUESSED_SQL;
  const std::string languages = placeholders(SOURCE_LANGUAGES.size());
  const std::string capped = options.limit ? "WHERE place <= ? " : "";

  std::vector<std::int64_t> distinct;
  distinct.reserve(symbol_ids.size());
  std::unordered_set<std::int64_t> seen;
  for (std::int64_t id : symbol_ids) {
    if (seen.insert(id).second) distinct.push_back(id);
  }

  std::vector<Caller> found;
  for_each_chunk(
      distinct,
      [&](std::span<const std::int64_t> chunk) {
        const std::string sql =
            "SELECT asked, id, name, kind, fqn, path, line, resolution, total, call_line FROM "
            "(SELECT e.target_id AS asked, s.id AS id, s.name AS name, s.kind AS kind, s.fqn AS "
            "fqn, f.path AS path, s.start_line AS line, MIN(e.resolution) AS resolution, "
            "MIN(e.line) AS call_line, ROW_NUMBER() OVER (PARTITION BY e.target_id ORDER BY "
            "f.path, s.start_line, s.id) AS place, COUNT(*) OVER (PARTITION BY e.target_id) AS "
            "total FROM edges e JOIN symbols s ON s.id = e.source_id JOIN files f ON f.id = "
            "s.file_id WHERE e.target_id IN (" +
            placeholders(chunk.size()) + ") AND e.kind = 'call' AND " + kind_sql +
            " AND f.language IN (" + languages + ") GROUP BY e.target_id, s.id) " + capped +
            "ORDER BY asked, place";
        Params params(chunk.begin(), chunk.end());
        append_texts(params, SOURCE_LANGUAGES);
        if (options.limit) params.emplace_back(*options.limit);
        for (const Row& row : db().fetchall(sql, params))
          found.push_back(to_caller(row));
      },
      detail::MAX_BOUND_IDS);
  return found;
}

}  // namespace quarry
