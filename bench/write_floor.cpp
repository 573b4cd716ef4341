#include "write_floor.h"

#include <chrono>

#include "indexer/index_writer.h"
#include "storage/database.h"

namespace quarry::bench {

namespace {

double since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

WriteFloor write_floor(const std::string& made, const std::string& out) {
  using indexer::cache_size_sql;
  Database db = create_index(
      out, false,
      std::string(indexer::WRITING_PRAGMAS_SQL) + cache_size_sql(indexer::WRITING_CACHE_KIB));
  db.fetchall("ATTACH DATABASE ? AS made", {made});
  WriteFloor floor;
  // Read once untimed, so that the copy reads pages from memory as the writer reads models.
  for (const char* table : {"components", "files", "symbols", "edges", "pending_references"}) {
    const auto count = db.fetchone(std::string("SELECT count(*) FROM made.") + table);
    if (std::string_view(table) == "edges") floor.edges = to_int(count->at(0));
  }
  const auto start = std::chrono::steady_clock::now();
  db.execute("BEGIN");
  db.execute(
      "INSERT INTO components SELECT * FROM made.components;"
      "INSERT INTO files SELECT * FROM made.files;"
      "INSERT INTO symbols SELECT * FROM made.symbols;");
  db.execute(INDEX_FILE_LOOKUPS_SQL);
  db.execute(
      "INSERT INTO edges SELECT * FROM made.edges;"
      "INSERT INTO pending_references SELECT * FROM made.pending_references;");
  const auto links_written = std::chrono::steady_clock::now();
  db.execute(cache_size_sql(indexer::INDEXING_CACHE_KIB));
  db.execute(INDEX_LINK_LOOKUPS_SQL);
  db.execute("COMMIT; ANALYZE;");
  floor.after_links = since(links_written);
  floor.seconds = since(start);
  return floor;
}

}  // namespace quarry::bench
