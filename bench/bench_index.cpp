// Indexes a generated Python tree and reports lines per second beside the parse-only floor
// (the same files parsed by tree-sitter alone, as many threads) and the write floor (the
// same rows written by SQLite alone), then times the dead-code
// listing and the file-level cycles on the index it made.
//
//   bench_index [LINES] [--scripts]   (default 200000; --scripts: a TypeScript tree)
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string_view>

#include "indexer/indexer.h"
#include "parse_floor.h"
#include "python_tree.h"
#include "script_tree.h"
#include "storage/repository.h"
#include "write_floor.h"

namespace {

template <typename Work>
double seconds_of(Work&& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// User and system CPU time of the process so far, every thread included.
double cpu_seconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double peak_resident_mb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t wanted = 200000;
  bool scripts = false;
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "--scripts") {
      scripts = true;
    } else {
      wanted = std::strtoull(argv[i], nullptr, 10);
    }
  }
  const auto root = std::filesystem::temp_directory_path() /
                    (scripts ? "quarry_bench_script_tree" : "quarry_bench_python_tree");
  std::filesystem::remove_all(root);
  const std::size_t lines = scripts ? quarry::bench::write_script_tree(root, wanted)
                                    : quarry::bench::write_python_tree(root, wanted);
  const std::string db = (root / ".quarry" / "index.db").string();

  quarry::indexer::IndexSummary summary;
  const double cpu_before = cpu_seconds();
  const double index_seconds =
      seconds_of([&] { summary = quarry::indexer::build_index({.root = root, .db_path = db}); });
  std::printf("indexed %zu lines in %zu files: %.2f s, %.0f lines/s (%zu symbols, %zu edges)\n",
              lines, summary.python_files + summary.script_files, index_seconds,
              static_cast<double>(lines) / index_seconds, summary.symbols, summary.edges);
  // The process's peak so far is the indexing's: only the tree's writing ran before it.
  std::printf("indexing CPU: %.2f s; peak resident: %.0f MB\n", cpu_seconds() - cpu_before,
              peak_resident_mb());

  const auto floor = quarry::bench::parse_floor(root);
  std::printf("parse-only floor: %.2f s; index / floor: %.2fx\n", floor.seconds,
              index_seconds / floor.seconds);
  // What SQLite alone takes to write the same rows, and the part of it that can only start
  // once the last link is known: the parse floor plus that part bounds index / floor from
  // below, were reading the models and resolving them free.
  const std::string copy = db + ".write-floor";
  const auto written = quarry::bench::write_floor(db, copy);
  std::filesystem::remove(copy);
  std::printf(
      "write floor: %.2f s, %.2f s of it after the last link; (parse + that) / parse: %.2fx\n",
      written.seconds, written.after_links, (floor.seconds + written.after_links) / floor.seconds);

  quarry::Repository repo(db);
  std::int64_t dead = 0;
  const double dead_seconds = seconds_of([&] { dead = repo.get_dead_code().total_count; });
  std::printf("dead-code first page: %.2f s (%lld candidates)\n", dead_seconds,
              static_cast<long long>(dead));
  std::size_t cycles = 0;
  const double cycle_seconds =
      seconds_of([&] { cycles = repo.find_circular_dependencies("file").size(); });
  std::printf("cycles --level file: %.2f s (%zu cycles)\n", cycle_seconds, cycles);
  std::filesystem::remove_all(root);
  return 0;
}
