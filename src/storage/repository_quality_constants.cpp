// The module constants of the quality queries. They are defined in this one file, in this
// order, because each is built from the ones before it; the vocabulary they start from is
// constexpr and so is ready before any of them.
#include <string>

#include "models/edge.h"
#include "storage/repository_quality.h"

namespace quarry::detail {

const std::string GUESSED_SQL = "e.resolution IN " + sql_quoted_list(GUESSED_RESOLUTIONS);

const std::string HIERARCHY_SQL = sql_quoted_list(HIERARCHY_KINDS);

const std::string PARENT_FQN = "substr(s.fqn, 1, length(s.fqn) - length(s.name) - 1)";

const std::string PRODUCTION_USE =
    "SELECT 1 FROM edges e JOIN symbols u ON u.id = e.source_id JOIN files uf ON uf.id = "
    "u.file_id WHERE e.target_id = {target} AND {production}";

// The edge's own columns decide: idx_edges_target covers the target, the resolution and the
// source, so the lookup reads no symbol or file row.
const std::string EDGE_USE =
    "SELECT 1 FROM edges e WHERE e.target_id = {target} AND e.source_id {production}";

const std::string DEAD_CODE_DATA =
    "WITH runtime_member(name) AS (SELECT value FROM json_each(?)), "
    "dispatch_prefix(prefix) AS MATERIALIZED (SELECT value FROM json_each(?)) ";

const std::string TEST_SYMBOLS =
    "test_symbol(id) AS MATERIALIZED (SELECT h.id FROM files t CROSS JOIN symbols h ON "
    "h.file_id = t.id WHERE {test})";

// Each distinct name read once, each of its definitions probed once: at most one lookup in
// idx_edges_target per symbol of the index, and on a large index far fewer than a pass over
// all edges for the guessed ones.
const std::string GUESSED_NAMES =
    "guessed_name(name, low_id, high_id) AS MATERIALIZED (SELECT n.name, MIN(n.id), MAX(n.id) "
    "FROM (SELECT DISTINCT name FROM candidate) c CROSS JOIN symbols n ON n.name = c.name "
    "WHERE EXISTS (SELECT 1 FROM edges e WHERE e.target_id = n.id AND " +
    GUESSED_SQL + " AND e.source_id {production}) GROUP BY n.name)";

const std::array<std::string, 6> UNSEEN_USES{
    // A definition nested in a function or method of the same file.
    "EXISTS (SELECT 1 FROM symbols p WHERE p.fqn = " + PARENT_FQN +
        " AND p.file_id = s.file_id AND p.kind IN ('function', 'method'))",
    // An override of a member of a base in the index.
    "(s.kind = 'method' AND EXISTS (SELECT 1 FROM symbols c JOIN edges b ON b.source_id = "
    "c.id AND b.kind IN " +
        HIERARCHY_SQL +
        " JOIN symbols base ON base.id = b.target_id JOIN symbols m ON m.fqn = base.fqn || '.' "
        "|| s.name WHERE c.fqn = " +
        PARENT_FQN + "))",
    // A method of a class whose base lies outside the index.
    "(s.kind = 'method' AND EXISTS (SELECT 1 FROM symbols c WHERE c.fqn = " + PARENT_FQN +
        " AND (c.signature LIKE '%(%' OR c.signature LIKE '% extends %' OR c.signature LIKE "
        "'% implements %') AND NOT EXISTS (SELECT 1 FROM edges b WHERE b.source_id = c.id AND "
        "b.kind IN " +
        HIERARCHY_SQL + ")))",
    // A method whose name is used on another method.
    "(s.kind = 'method' AND EXISTS (SELECT 1 FROM symbols n JOIN edges e ON e.target_id = "
    "n.id WHERE n.name = s.name AND n.id != s.id AND n.kind = 'method' AND e.source_id "
    "{production}))",
    // A method named like a member of the runtime's own values.
    "(s.kind = 'method' AND s.name IN (SELECT name FROM runtime_member))",
    // A member of a dispatch family (the count stops at the family's size).
    "EXISTS (SELECT 1 FROM dispatch_prefix d WHERE substr(s.name, 1, length(d.prefix)) = "
    "d.prefix AND (SELECT COUNT(*) FROM (SELECT 1 FROM symbols h WHERE h.file_id = s.file_id "
    "AND h.kind = s.kind AND substr(h.name, 1, length(d.prefix)) = d.prefix LIMIT " +
        std::to_string(DISPATCH_FAMILY_SIZE) + ")) >= " + std::to_string(DISPATCH_FAMILY_SIZE) +
        ")",
};

const std::array<std::pair<std::string, std::string>, 3> LIKELY_REASONS{{
    {"EXISTS (" + fill_placeholder(EDGE_USE, "target", "s.id") + " AND " + GUESSED_SQL + ")",
     "its only uses are guesses between same-named definitions"},
    // Another definition of the name has a guessed production use: the name's guessed
    // targets are not all this symbol (GUESSED_NAMES holds their lowest and highest id).
    {"EXISTS (SELECT 1 FROM guessed_name g WHERE g.name = s.name AND (g.low_id != s.id OR "
     "g.high_id != s.id))",
     "a use of another definition of its name is a guess: it may be a use of this one"},
    {"EXISTS (SELECT 1 FROM pending_references p WHERE p.target_name = s.name)",
     "a reference to its name is not bound yet"},
}};

}  // namespace quarry::detail
