#include "indexer/indexer.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

#include "indexer/index_writer.h"
#include "indexer/python_parser.h"
#include "indexer/python_resolver.h"
#include "indexer/source_files.h"

namespace quarry::indexer {

namespace {

// Runs `work(worker, i)` for i in [0, count) on `threads` threads (worker 0 .. threads - 1
// says which thread), calling `progress(done)` on the calling thread about ten times a
// second until all are done.
template <typename Work>
void run_parallel(std::size_t count, unsigned threads, Work&& work,
                  const std::function<void(std::size_t)>& progress) {
  std::atomic<std::size_t> next{0}, done{0};
  auto worker = [&](unsigned id) {
    for (std::size_t i = next++; i < count; i = next++) {
      work(id, i);
      ++done;
    }
  };
  std::vector<std::jthread> pool;
  for (unsigned t = 1; t < threads && t < count; ++t)
    pool.emplace_back(worker, t);
  if (!progress) {
    worker(0);
    return;
  }
  std::jthread own(worker, 0u);
  while (done < count) {
    progress(done);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  progress(count);
}

std::optional<std::string> read_file(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream text;
  text << in.rdbuf();
  if (in.bad()) return std::nullopt;
  return text.str();
}

}  // namespace

IndexSummary build_index(const IndexOptions& options) {
  const auto started = std::chrono::steady_clock::now();
  IndexSummary summary;

  // Leave the index's own directory out when it lies inside the repository.
  std::string skip = ".quarry";
  const auto db_dir = std::filesystem::absolute(options.db_path).parent_path().lexically_normal();
  const auto relative =
      db_dir.lexically_relative(std::filesystem::absolute(options.root).lexically_normal());
  if (!relative.empty() && *relative.begin() != "..") skip = relative.generic_string();

  std::vector<ListedFile> files;
  std::vector<std::string> python_paths;
  for (std::string& path : list_source_files(options.root, skip)) {
    ListedFile file{path, std::string(language_of(path)), -1};
    if (file.language == "python") {
      file.model = static_cast<int>(python_paths.size());
      python_paths.push_back(path);
    }
    files.push_back(std::move(file));
  }

  std::vector<FileModel> models(python_paths.size());
  const unsigned threads =
      options.threads != 0 ? options.threads : std::max(1u, std::thread::hardware_concurrency());
  // One parser per thread: a parser is not thread-safe.
  std::vector<std::unique_ptr<PythonParser>> parsers(threads);
  run_parallel(
      python_paths.size(), threads,
      [&](unsigned worker, std::size_t i) {
        auto& parser = parsers[worker];
        if (!parser) parser = std::make_unique<PythonParser>();
        const auto source = read_file(options.root / python_paths[i]);
        models[i] = parser->parse(python_paths[i], source.value_or(std::string()));
        if (!source)
          models[i].warnings.insert(models[i].warnings.begin(),
                                    python_paths[i] + ": cannot be read");
      },
      options.progress ? [&](std::size_t done) { options.progress(done, python_paths.size()); }
                       : std::function<void(std::size_t)>());

  const PythonResolver resolver(models);
  std::vector<FileLinks> links(models.size());
  run_parallel(models.size(), threads,
               [&](unsigned, std::size_t i) { links[i] = resolver.resolve(i); }, {});

  const WriteCounts counts = write_index(options.db_path, files, models, resolver, links);
  for (const FileModel& model : models) {
    summary.warnings.insert(summary.warnings.end(), model.warnings.begin(), model.warnings.end());
  }
  summary.files = files.size();
  summary.python_files = models.size();
  summary.symbols = counts.symbols;
  summary.edges = counts.edges;
  summary.pending_references = counts.pending_references;
  summary.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  return summary;
}

}  // namespace quarry::indexer
