// What an index records about itself, in its `meta` table (key TEXT PRIMARY KEY, value TEXT
// NOT NULL): the tree it was built from, by which quarry, from which commit, and when. The
// index's own tables never depend on it; an index without it (one written by another
// program, or an older quarry) is read as well as any.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "storage/database.h"

namespace quarry {

// The layout of the index's tables that this build of quarry writes; raised whenever a
// table or column changes meaning.
inline constexpr std::int64_t INDEX_SCHEMA_VERSION = 1;

// Where indexes live by default, relative to the indexed tree.
inline constexpr std::string_view INDEX_DIR_NAME = ".quarry";
inline constexpr std::string_view INDEX_FILE_NAME = "index.db";

struct IndexMeta {
  std::optional<std::string> root;            // absolute, lexically normal
  std::optional<std::string> quarry_version;  // of the quarry that wrote the index
  std::optional<std::string> git_commit;      // HEAD when indexed, full lower-case hex
  std::optional<std::string> indexed_at;      // UTC, "2024-05-01T12:34:56Z"
  std::optional<std::int64_t> schema_version;

  bool operator==(const IndexMeta&) const = default;
};

// The meta table of `db`, read-only. Every field is absent when there is no such table, or
// it lacks the key or value column, or cannot be read; a field is absent when its key is
// missing or repeated, or its value is not text (a schema version: not a decimal integer,
// as text or integer; a git commit: not 40 or 64 hex digits). Never throws DatabaseError.
IndexMeta read_index_meta(Database& db);

// Creates the meta table in `db` (writable, with no meta table yet) and writes the fields
// of `meta` that are present. Throws DatabaseError when it cannot.
void write_index_meta(Database& db, const IndexMeta& meta);

// The first `.quarry/index.db` (a regular file, or a link to one) found in `start` or in
// one of the directories above it, as git finds `.git`; `start` is made absolute and
// lexically normal first, and so is the path returned. Nothing when there is none.
// Never throws.
std::optional<std::filesystem::path> find_index(const std::filesystem::path& start);

// Whether the index may be stale: it recorded a git commit, and HEAD of the work tree that
// holds `root` (the indexed tree; `meta.root` where the caller has nothing better) names
// another. False when either commit is unknown.
bool index_is_stale(const IndexMeta& meta, const std::filesystem::path& root);

}  // namespace quarry
