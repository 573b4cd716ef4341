#include "indexer/indexer.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <ctime>
#include <exception>
#include <future>
#include <iterator>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>

#include "indexer/entry_points.h"
#include "indexer/index_target.h"
#include "indexer/index_writer.h"
#include "indexer/python_parser.h"
#include "indexer/python_resolver.h"
#include "indexer/script_config.h"
#include "indexer/script_entry_points.h"
#include "indexer/script_modules.h"
#include "indexer/script_parser.h"
#include "indexer/source_files.h"
#include "indexer/text.h"
#include "storage/index_meta.h"
#include "utils/git_head.h"

namespace quarry::indexer {

std::function<void(std::string_view phase, const std::string& path)> worker_fault_for_tests;

namespace {

namespace fs = std::filesystem;

// Runs a worker's `work` on the file at `path`; what it throws is rethrown naming the file,
// as a runtime error or as a fault of quarry's own (a logic error), whichever it was.
template <typename Work>
void on_file(std::string_view phase, const std::string& path, Work&& work) {
  try {
    if (worker_fault_for_tests) worker_fault_for_tests(phase, path);
    work();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path + ": cannot be indexed: " + error.what());
  } catch (const std::exception& error) {
    throw std::logic_error(path + ": cannot be indexed: " + error.what());
  } catch (...) {
    throw std::logic_error(path + ": cannot be indexed: unknown exception");
  }
}

// Runs `work(worker, i)` for i in [0, count) on `threads` threads (worker 0 .. threads - 1
// says which thread), calling `progress(done)` on the calling thread about ten times a
// second until all are done. The first exception of any worker stops the others and is
// rethrown on the calling thread once they have all ended.
template <typename Work>
void run_parallel(std::size_t count, unsigned threads, Work&& work,
                  const std::function<void(std::size_t)>& progress) {
  std::atomic<std::size_t> next{0}, done{0};
  std::mutex failure_mutex;
  std::exception_ptr failure;
  auto worker = [&](unsigned id) {
    try {
      for (std::size_t i = next++; i < count; i = next++) {
        work(id, i);
        ++done;
      }
    } catch (...) {
      const std::lock_guard lock(failure_mutex);
      if (!failure) failure = std::current_exception();
      next = count;
      done = count;  // nothing more will be done: the progress loop ends
    }
  };
  {
    std::vector<std::jthread> pool;
    for (unsigned t = 1; t < threads && t < count; ++t)
      pool.emplace_back(worker, t);
    if (!progress) {
      worker(0);
    } else {
      std::jthread own(worker, 0u);
      while (done < count) {
        progress(done);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
      }
      progress(count);
    }
  }
  if (failure) std::rethrow_exception(failure);
}

// What the resolving workers and the index writer tell each other while the index is
// written beside the resolving: which files' links are ready, and when either side stops.
class WriteHandoff {
 public:
  explicit WriteHandoff(std::size_t files) : resolved_(files, false) {}

  // A worker has put the links of `file` in place.
  void resolved(std::size_t file) {
    {
      const std::lock_guard lock(mutex_);
      resolved_[file] = true;
    }
    changed_.notify_all();
  }
  // Resolving has failed: the writer is to give up.
  void stop() {
    {
      const std::lock_guard lock(mutex_);
      stopped_ = true;
    }
    changed_.notify_all();
  }
  // For the writer: waits until the links of `file` are in place; false when resolving
  // stopped first.
  bool wait_resolved(std::size_t file) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return resolved_[file] || stopped_; });
    return !stopped_;
  }
  // The writer has written the files and definitions: it reads the models no more.
  void files_written() {
    {
      const std::lock_guard lock(mutex_);
      files_written_ = true;
    }
    changed_.notify_all();
  }
  // Waits until the writer reads the models no more: it has written them, or it has ended.
  void wait_files_written() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return files_written_ || writer_ended_; });
  }
  // The models and the resolver are freed: the writer may take the memory they held.
  void released() {
    {
      const std::lock_guard lock(mutex_);
      released_ = true;
    }
    changed_.notify_all();
  }
  // For the writer: waits until the models are freed; false when resolving stopped first.
  bool wait_released() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return released_ || stopped_; });
    return !stopped_;
  }
  // The writer has ended, whether it completed the index or not.
  void writer_ended() {
    {
      const std::lock_guard lock(mutex_);
      writer_ended_ = true;
    }
    changed_.notify_all();
  }
  // Waits at most `timeout` for the writer to end; whether it has.
  bool wait_writer(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return writer_ended_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<bool> resolved_;
  bool stopped_ = false;
  bool files_written_ = false;
  bool released_ = false;
  bool writer_ended_ = false;
};

// The files of the tree, less the index's own: the index file and those named after it
// (its lock, temporary and journal files), `.quarry/`, and any other directory of the tree
// that holds the index, which is named in a warning when it held anything else.
SourceListing list_files_but_the_index(const IndexOptions& options) {
  SourceListing listing = list_source_files(options.root, {".quarry"}, options.exclude);
  std::error_code ec;
  const fs::path relative = fs::weakly_canonical(fs::absolute(options.db_path), ec)
                                .lexically_relative(fs::weakly_canonical(options.root, ec));
  if (ec || relative.empty() || *relative.begin() == "..") return listing;
  const std::string index = relative.generic_string();
  std::erase_if(listing.files, [&](const std::string& path) {
    return path == index || path.starts_with(index + ".") || path.starts_with(index + "-");
  });
  const std::string dir = relative.parent_path().generic_string();
  if (dir.empty() || dir == ".quarry" || dir.starts_with(".quarry/")) return listing;
  const auto left_out = std::erase_if(
      listing.files, [&](const std::string& path) { return path.starts_with(dir + "/"); });
  if (left_out > 0) {
    listing.warnings.push_back(dir + "/: left out (" + std::to_string(left_out) +
                               " files), since it holds the index; keep the index in .quarry/ "
                               "or outside the tree to index them");
  }
  return listing;
}

// The current time, UTC, as "2024-05-01T12:34:56Z".
std::string utc_now() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  char text[32];
  if (gmtime_r(&now, &parts) == nullptr ||
      std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) {
    return {};
  }
  return text;
}

IndexMeta meta_of(const IndexOptions& options) {
  IndexMeta meta;
  fs::path root = fs::absolute(options.root).lexically_normal();
  if (!root.has_filename() && root != root.root_path()) root = root.parent_path();
  meta.root = root.string();
  if (!options.quarry_version.empty()) meta.quarry_version = options.quarry_version;
  meta.schema_version = INDEX_SCHEMA_VERSION;
  meta.git_commit = git_head_commit(root);
  if (std::string now = utc_now(); !now.empty()) meta.indexed_at = std::move(now);
  return meta;
}

// Beside an index in a `.quarry` directory, a `.gitignore` that ignores everything there
// but the baseline file, which is meant to be committed, unless the directory has one
// already. Says in `warnings` when it cannot be written.
void ignore_index_dir(const std::string& db_path, std::vector<std::string>& warnings) {
  const fs::path dir = fs::absolute(db_path).lexically_normal().parent_path();
  if (dir.filename() != INDEX_DIR_NAME) return;
  const fs::path ignore = dir / ".gitignore";
  const int fd = open(ignore.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (fd < 0 && errno == EEXIST) return;  // whatever is there is the user's
  int error = errno;
  if (fd >= 0) {
    constexpr std::string_view TEXT = "*\n!baseline.json\n";
    error = write(fd, TEXT.data(), TEXT.size()) == static_cast<ssize_t>(TEXT.size()) ? 0 : errno;
    if (close(fd) != 0 && error == 0) error = errno;
    if (error != 0) unlink(ignore.c_str());
  }
  if (error != 0) {
    warnings.push_back(ignore.string() + ": not written (" + std::strerror(error) + ")");
  }
}

}  // namespace

IndexSummary build_index(const IndexOptions& options) {
  const auto started = std::chrono::steady_clock::now();
  IndexSummary summary;
  // The progress of one phase of parallel work, as run_parallel reports it; nothing without
  // options.progress, so that the work runs on the calling thread.
  const auto report = [&](std::string_view phase,
                          std::size_t total) -> std::function<void(std::size_t)> {
    if (!options.progress) return {};
    return [&options, phase, total](std::size_t done) { options.progress(phase, done, total); };
  };
  IndexTarget target(options.db_path, options.waiting);
  // The new index file is made (its tables and meta) while the files are listed and parsed.
  auto opening = std::async(std::launch::async, [&] {
    return std::make_unique<IndexWriter>(target.temporary(), meta_of(options));
  });

  std::vector<ListedFile> files;
  // The files that are parsed, Python and scripts, in the order of the listing.
  std::vector<std::string> parsed_paths;
  std::vector<bool> is_script;
  std::vector<std::string> python_modules;
  std::vector<std::string> script_paths;
  if (options.progress) options.progress(PHASE_LISTING, 0, 0);
  SourceListing listing = list_files_but_the_index(options);
  if (options.progress) options.progress(PHASE_LISTING, listing.files.size(), listing.files.size());
  summary.warnings = std::move(listing.warnings);
  for (std::string& path : listing.files) {
    ListedFile file{path, std::string(language_of(path)), -1};
    const bool python = file.language == "python";
    const bool script = !python && script_dialect_of(path).has_value();
    if (python || script) {
      file.model = static_cast<int>(parsed_paths.size());
      parsed_paths.push_back(path);
      is_script.push_back(script);
      if (python) python_modules.push_back(module_name_of(path));
      if (script) script_paths.push_back(path);
    }
    files.push_back(std::move(file));
  }
  ScriptConfig script_config;
  if (!script_paths.empty())
    script_config = read_script_config(options.root, listing.files, options.max_file_size);
  summary.warnings.insert(summary.warnings.end(), script_config.warnings.begin(),
                          script_config.warnings.end());
  const ScriptModules script_modules(script_paths, python_modules,
                                     std::move(script_config.packages),
                                     std::move(script_config.mappings));
  // Each package of a workspace is a component of its own.
  for (ListedFile& file : files) {
    if (file.model < 0 || !is_script[static_cast<std::size_t>(file.model)]) continue;
    const ScriptPackage* package = script_modules.package_of(file.path);
    if (package != nullptr && !package->directory.empty())
      file.component = package->name.empty() ? package->directory : package->name;
  }

  std::vector<FileModel> models(parsed_paths.size());
  const unsigned threads =
      options.threads != 0 ? options.threads : std::max(1u, std::thread::hardware_concurrency());
  // One parser of each language per thread: a parser is not thread-safe.
  std::vector<std::unique_ptr<PythonParser>> parsers(threads);
  std::vector<std::unique_ptr<ScriptParser>> script_parsers(threads);
  run_parallel(
      parsed_paths.size(), threads,
      [&](unsigned worker, std::size_t i) {
        const std::string& path = parsed_paths[i];
        on_file(PHASE_PARSING, path, [&] {
          SourceText source = read_source(options.root / path, options.max_file_size);
          std::string problem = source.problem;
          if (is_script[i]) {
            auto& parser = script_parsers[worker];
            if (!parser) parser = std::make_unique<ScriptParser>(script_modules);
            models[i] = parser->parse(path, source.text ? *source.text : std::string());
          } else {
            auto& parser = parsers[worker];
            if (!parser) parser = std::make_unique<PythonParser>();
            const DecodedSource decoded =
                decode_python_source(source.text ? std::move(*source.text) : std::string());
            models[i] = parser->parse(path, decoded.text);
            if (source.text) problem = decoded.problem;
          }
          if (!problem.empty()) {
            models[i].warnings.insert(models[i].warnings.begin(),
                                      path + (source.text ? ": " : ": not indexed: ") + problem);
          }
        });
      },
      report(PHASE_PARSING, parsed_paths.size()));
  // What makes the parsers' stored names unique is not needed further; the names stay with
  // the models.
  parsers.clear();
  script_parsers.clear();

  // What packaging files declare as entry points is run from outside: it is exported.
  const std::vector<std::string> entry_point_warnings =
      mark_entry_points(options.root, listing.files, options.max_file_size, models);
  summary.warnings.insert(summary.warnings.end(), entry_point_warnings.begin(),
                          entry_point_warnings.end());
  // So is what script packages publish or run, and what tools' configuration files export.
  mark_script_entry_points(listing.files, script_modules, models);
  // So are the entry points the configuration names.
  const std::vector<std::string> configured_warnings =
      mark_configured_entry_points(options.entry_points, models);
  summary.warnings.insert(summary.warnings.end(), configured_warnings.begin(),
                          configured_warnings.end());

  // The index is written while the files are resolved: the files and definitions at once,
  // each file's links as soon as they are resolved (in file order, freed once written), so
  // that writing overlaps resolving and the links of the whole repository are never held
  // at once.
  std::vector<FileLinks> links(models.size());
  WriteHandoff handoff(models.size());
  std::atomic<std::size_t> written{0};
  std::exception_ptr write_failure;
  WriteCounts counts;
  std::jthread writer([&] {
    try {
      const std::unique_ptr<IndexWriter> index = opening.get();
      index->write_files(files, models, first_symbol_ids(models));
      handoff.files_written();
      for (std::size_t i = 0; i < links.size() && handoff.wait_resolved(i); ++i) {
        index->write_links(links[i]);
        links[i].edges = {};
        links[i].pending = {};
        ++written;
      }
      if (written == links.size() && handoff.wait_released()) counts = index->finish();
    } catch (...) {
      write_failure = std::current_exception();
    }
    handoff.writer_ended();
  });
  std::vector<std::string> model_warnings;
  try {
    {
      const PythonResolver resolver(models);
      run_parallel(
          models.size(), threads,
          [&](unsigned, std::size_t i) {
            on_file(PHASE_RESOLVING, models[i].path, [&] { links[i] = resolver.resolve(i); });
            // Only this file's own resolving reads its uses.
            models[i].uses = {};
            models[i].string_uses = {};
            handoff.resolved(i);
          },
          report(PHASE_RESOLVING, models.size()));
    }
    // The models are no longer read: freed before the writer sorts the link indexes.
    for (FileModel& model : models) {
      std::move(model.warnings.begin(), model.warnings.end(), std::back_inserter(model_warnings));
    }
    summary.python_files = models.size() - script_paths.size();
    handoff.wait_files_written();
    models = {};
  } catch (...) {
    handoff.stop();
    throw;
  }
  handoff.released();
  // A step per file's links, and one for the lookup indexes.
  const std::size_t write_steps = links.size() + 1;
  while (!handoff.wait_writer(std::chrono::milliseconds(100))) {
    if (options.progress) options.progress(PHASE_WRITING, written, write_steps);
  }
  writer.join();
  if (write_failure) std::rethrow_exception(write_failure);
  if (options.progress) options.progress(PHASE_WRITING, write_steps, write_steps);
  target.commit();
  ignore_index_dir(options.db_path, summary.warnings);
  std::move(model_warnings.begin(), model_warnings.end(), std::back_inserter(summary.warnings));
  summary.files = files.size();
  summary.script_files = script_paths.size();
  summary.symbols = counts.symbols;
  summary.edges = counts.edges;
  summary.pending_references = counts.pending_references;
  for (const FileLinks& file_links : links)
    summary.calls += file_links.calls;
  summary.seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  return summary;
}

}  // namespace quarry::indexer
