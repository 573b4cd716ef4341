#include "indexer/index_writer.h"

#include <sqlite3.h>

#include <map>
#include <string_view>

#include "indexer/python_parser.h"
#include "storage/database.h"

namespace quarry::indexer {

std::string cache_size_sql(int kib) {
  return "PRAGMA cache_size = -" + std::to_string(kib) + ";";
}

namespace {

// One insert statement, prepared once and run per row with its values bound in place:
// the writer runs it millions of times on a large repository, so no row is built as
// Params and no text is copied (SQLite reads each text during the step).
class Insert {
 public:
  Insert(Database& db, std::string_view sql) : db_(db) {
    if (sqlite3_prepare_v3(db.handle(), sql.data(), static_cast<int>(sql.size()),
                           SQLITE_PREPARE_PERSISTENT, &stmt_, nullptr) != SQLITE_OK) {
      fail();
    }
  }
  ~Insert() { sqlite3_finalize(stmt_); }
  Insert(const Insert&) = delete;
  Insert& operator=(const Insert&) = delete;

  Insert& integer(int column, std::int64_t value) {
    check(sqlite3_bind_int64(stmt_, column, value));
    return *this;
  }
  Insert& text(int column, std::string_view value) {
    check(
        sqlite3_bind_text64(stmt_, column, value.data(), value.size(), SQLITE_STATIC, SQLITE_UTF8));
    return *this;
  }
  Insert& null(int column) {
    check(sqlite3_bind_null(stmt_, column));
    return *this;
  }
  void run() {
    const int status = sqlite3_step(stmt_);
    sqlite3_reset(stmt_);
    if (status != SQLITE_DONE) fail();
  }

 private:
  void check(int status) {
    if (status != SQLITE_OK) fail();
  }
  [[noreturn]] void fail() { throw DatabaseError(db_.path(), sqlite3_errmsg(db_.handle())); }

  Database& db_;
  sqlite3_stmt* stmt_ = nullptr;
};

}  // namespace

struct IndexWriter::Statements {
  explicit Statements(Database&& opened)
      : db(std::move(opened)),
        component(db, "INSERT INTO components (id, name) VALUES (?, ?)"),
        file(db, "INSERT INTO files (id, path, language, component_id) VALUES (?, ?, ?, ?)"),
        symbol(db,
               "INSERT INTO symbols (id, file_id, name, kind, fqn, start_line, end_line, "
               "signature, is_export) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)"),
        edge(db,
             "INSERT INTO edges (source_id, target_id, kind, resolution, line) VALUES (?, ?, "
             "?, ?, ?)"),
        pending(db,
                "INSERT INTO pending_references (source_id, target_name, line) VALUES (?, ?, "
                "?)") {}

  Database db;
  Insert component, file, symbol, edge, pending;
};

namespace {

Database open_for_writing(const std::string& path, const IndexMeta& meta) {
  // Set before the tables are made: a signal that ends the run while they are made leaves
  // no journal beside the temporary file (which is removed).
  Database db = create_index(path, false,
                             std::string(WRITING_PRAGMAS_SQL) + cache_size_sql(WRITING_CACHE_KIB));
  db.execute("BEGIN");
  write_index_meta(db, meta);
  return db;
}

}  // namespace

IndexWriter::IndexWriter(const std::string& path, const IndexMeta& meta)
    : statements_(std::make_unique<Statements>(open_for_writing(path, meta))) {}

IndexWriter::~IndexWriter() = default;

void IndexWriter::write_files(const std::vector<ListedFile>& files,
                              const std::vector<FileModel>& models,
                              const std::vector<std::int64_t>& first_ids) {
  const auto component_name = [](const ListedFile& file) {
    return file.component.empty() ? component_of(file.path) : file.component;
  };
  std::map<std::string, std::int64_t> components;
  for (const ListedFile& file : files) {
    if (file.model >= 0) components.emplace(component_name(file), 0);
  }
  std::int64_t next_component = 1;
  for (auto& [name, id] : components) {
    id = next_component++;
    statements_->component.integer(1, id).text(2, name).run();
  }

  std::int64_t file_id = 0;
  for (const ListedFile& file : files) {
    ++file_id;
    Insert& row = statements_->file.integer(1, file_id).text(2, file.path).text(3, file.language);
    if (file.model >= 0) {
      row.integer(4, components.at(component_name(file)));
    } else {
      row.null(4);
    }
    row.run();
    if (file.model < 0) continue;
    const auto m = static_cast<std::size_t>(file.model);
    std::int64_t id = first_ids[m];
    for (const Definition& def : models[m].definitions) {
      Insert& symbol = statements_->symbol.integer(1, id++)
                           .integer(2, file_id)
                           .text(3, def.name)
                           .text(4, def.kind)
                           .text(5, def.fqn)
                           .integer(6, def.start_line)
                           .integer(7, def.end_line)
                           .integer(9, def.is_export ? 1 : 0);
      if (def.signature) {
        symbol.text(8, *def.signature);
      } else {
        symbol.null(8);
      }
      symbol.run();
      ++counts_.symbols;
    }
  }
  // Indexed beside the resolving of the files, whose links come later.
  statements_->db.execute(INDEX_FILE_LOOKUPS_SQL);
}

void IndexWriter::write_links(const FileLinks& links) {
  for (const ResolvedEdge& edge : links.edges) {
    statements_->edge.integer(1, edge.source)
        .integer(2, edge.target)
        .text(3, edge.kind)
        .text(4, edge.resolution)
        .integer(5, edge.line)
        .run();
    ++counts_.edges;
  }
  for (const PendingReference& pending : links.pending) {
    statements_->pending.integer(1, pending.source)
        .text(2, pending.name)
        .integer(3, pending.line)
        .run();
    ++counts_.pending_references;
  }
}

WriteCounts IndexWriter::finish() {
  Database& db = statements_->db;
  db.execute(cache_size_sql(INDEXING_CACHE_KIB));
  db.execute(INDEX_LINK_LOOKUPS_SQL);
  db.execute("COMMIT; ANALYZE;");
  return counts_;
}

}  // namespace quarry::indexer
