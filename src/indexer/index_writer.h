// Writes a complete index database from the parsed and resolved repository.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "indexer/python_model.h"
#include "indexer/python_resolver.h"
#include "storage/index_meta.h"

namespace quarry::indexer {

struct ListedFile {
  std::string path;
  std::string language;
  int model = -1;  // index into the parsed files, or -1
  // The component of a parsed file when it is not its directory's (a workspace package).
  std::string component;
};

// The page cache of the writing connection, in KiB, while rows are written: the parsed
// models of the whole repository are held meanwhile, so the cache stays small and spills
// its pages to the file.
constexpr int WRITING_CACHE_KIB = 16 * 1024;
// The page cache once the models are freed, in KiB: the link lookup indexes are sorted
// within it, and a larger cache spills fewer sorted runs to disk.
constexpr int INDEXING_CACHE_KIB = 32 * 1024;

// What the writing connection is set to: the file is renamed into place only when
// complete, so it needs no journal and no syncing.
constexpr std::string_view WRITING_PRAGMAS_SQL =
    "PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF;";

// The statement that sets the page cache to `kib` KiB.
std::string cache_size_sql(int kib);

struct WriteCounts {
  std::size_t symbols = 0;
  std::size_t edges = 0;
  std::size_t pending_references = 0;
};

// Writes a new index into an empty file in one transaction, in the order the indexer has
// its parts: the listed files and their definitions once parsing is done, then each file's
// links as resolving gives them, then the lookup indexes. One thread uses a writer at a
// time; any SQLite failure throws DatabaseError.
class IndexWriter {
 public:
  // Creates the tables in the new, empty file at `path` (an IndexTarget's temporary file)
  // and writes `meta` into its meta table.
  IndexWriter(const std::string& path, const IndexMeta& meta);
  ~IndexWriter();
  IndexWriter(const IndexWriter&) = delete;
  IndexWriter& operator=(const IndexWriter&) = delete;

  // Writes the components (a parsed file's `component`, else its directory's dotted path;
  // numbered in name order), the listed files and the definitions of the parsed ones, and
  // indexes them. `first_ids[m]` is the symbol id of the first definition of `models[m]`
  // (first_symbol_ids).
  void write_files(const std::vector<ListedFile>& files, const std::vector<FileModel>& models,
                   const std::vector<std::int64_t>& first_ids);

  // Writes one file's edges and pending references.
  void write_links(const FileLinks& links);

  // Adds the lookup indexes of the links, commits and gathers the planner's statistics,
  // with a page cache larger than the one rows are written through: call it once the
  // parsed models are freed. Nothing may be written after it.
  WriteCounts finish();

 private:
  struct Statements;
  std::unique_ptr<Statements> statements_;
  WriteCounts counts_;
};

}  // namespace quarry::indexer
