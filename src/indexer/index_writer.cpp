#include "indexer/index_writer.h"

#include <map>

#include "indexer/python_parser.h"
#include "storage/database.h"

namespace quarry::indexer {

namespace {

Value optional_text(const std::optional<std::string>& text) {
  return text ? Value(*text) : Value();
}

// Reports every STEP_BATCH steps: often enough for a progress line, rarely enough to cost
// nothing.
constexpr std::size_t STEP_BATCH = 256;

void fill(Database& db, const std::vector<ListedFile>& files, const std::vector<FileModel>& models,
          const PythonResolver& resolver, const std::vector<FileLinks>& links, WriteCounts& counts,
          const std::function<void(std::size_t)>& step_done) {
  // Components: one per directory holding Python files, numbered in name order.
  std::map<std::string, std::int64_t> components;
  for (const ListedFile& file : files) {
    if (file.model >= 0) components.emplace(component_of(file.path), 0);
  }
  std::int64_t next_component = 1;
  for (auto& [name, id] : components) {
    id = next_component++;
    db.fetchall("INSERT INTO components (id, name) VALUES (?, ?)", {id, name});
  }

  std::int64_t file_id = 0;
  for (const ListedFile& file : files) {
    ++file_id;
    step_done(1);
    Params row{file_id, file.path, file.language, Value()};
    if (file.model >= 0) row[3] = components.at(component_of(file.path));
    db.fetchall("INSERT INTO files (id, path, language, component_id) VALUES (?, ?, ?, ?)", row);
    if (file.model < 0) continue;
    const auto m = static_cast<std::size_t>(file.model);
    const auto& definitions = models[m].definitions;
    for (std::size_t d = 0; d < definitions.size(); ++d) {
      const Definition& def = definitions[d];
      db.fetchall(
          "INSERT INTO symbols (id, file_id, name, kind, fqn, start_line, end_line, signature, "
          "is_export) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)",
          {resolver.symbol_id(m, static_cast<int>(d)), file_id, def.name, def.kind, def.fqn,
           def.start_line, def.end_line, optional_text(def.signature),
           std::int64_t{def.is_export ? 1 : 0}});
      ++counts.symbols;
    }
  }
  for (const FileLinks& file_links : links) {
    step_done(1);
    for (const ResolvedEdge& edge : file_links.edges) {
      db.fetchall(
          "INSERT INTO edges (source_id, target_id, kind, resolution, line) VALUES (?, ?, ?, ?, ?)",
          {edge.source, edge.target, std::string(edge.kind), std::string(edge.resolution),
           edge.line});
      ++counts.edges;
    }
    for (const PendingReference& pending : file_links.pending) {
      db.fetchall("INSERT INTO pending_references (source_id, target_name, line) VALUES (?, ?, ?)",
                  {pending.source, pending.name, pending.line});
      ++counts.pending_references;
    }
  }
}

}  // namespace

WriteCounts write_index(const std::string& path, const std::vector<ListedFile>& files,
                        const std::vector<FileModel>& models, const PythonResolver& resolver,
                        const std::vector<FileLinks>& links, const IndexMeta& meta,
                        const std::function<void(std::size_t done, std::size_t total)>& progress) {
  const std::size_t total = files.size() + links.size() + 1;
  std::size_t done = 0;
  const auto step_done = [&](std::size_t steps) {
    done += steps;
    if (progress && (done % STEP_BATCH == 0 || done == total)) progress(done, total);
  };
  if (progress) progress(0, total);
  WriteCounts counts;
  Database db = create_index(path, false);
  // The file is renamed into place only when complete; it needs no journal.
  db.execute("PRAGMA journal_mode = OFF; PRAGMA synchronous = OFF; BEGIN");
  write_index_meta(db, meta);
  fill(db, files, models, resolver, links, counts, step_done);
  db.execute(INDEX_LOOKUPS_SQL);
  db.execute("COMMIT; ANALYZE;");
  step_done(1);
  return counts;
}

}  // namespace quarry::indexer
