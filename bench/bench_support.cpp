#include "bench_support.h"

#include <malloc.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>

namespace quarry::bench {

namespace {

double max_resident_mb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;  // kilobytes on Linux
}

}  // namespace

double resident_mb() {
  std::ifstream statm("/proc/self/statm");
  long size = 0;
  long resident = 0;
  if (!(statm >> size >> resident)) return 0.0;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) /
         (1024.0 * 1024.0);
}

PeakMemory::PeakMemory() {
  malloc_trim(0);
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";  // restart the high-water mark at the current resident size
  clear.flush();
  restarted_ = static_cast<bool>(clear);
  start_mb_ = resident_mb();
}

void PeakMemory::report(benchmark::State& state) const {
  const double peak = max_resident_mb();
  state.counters["peak_MB"] = peak;
  state.counters["extra_MB"] = restarted_ ? std::max(0.0, peak - start_mb_) : 0.0;
}

Repository& repository(Scale scale) {
  static std::map<Scale, std::unique_ptr<Repository>> open;
  auto& repo = open[scale];
  if (!repo) repo = std::make_unique<Repository>(cached_index(scale_options(scale)).string());
  return *repo;
}

Scale scale_arg(std::int64_t arg) {
  return SCALES.at(static_cast<std::size_t>(arg));
}

std::vector<TracedStatement> trace_statements(Database& db, const std::function<void()>& work) {
  std::vector<TracedStatement> traced;
  const auto on_statement = [](unsigned, void* context, void* statement, void* text) -> int {
    auto* out = static_cast<std::vector<TracedStatement>*>(context);
    char* expanded = sqlite3_expanded_sql(static_cast<sqlite3_stmt*>(statement));
    out->push_back({static_cast<const char*>(text), expanded != nullptr ? expanded : ""});
    sqlite3_free(expanded);
    return 0;
  };
  sqlite3_trace_v2(db.handle(), SQLITE_TRACE_STMT, on_statement, &traced);
  try {
    work();
  } catch (...) {
    sqlite3_trace_v2(db.handle(), 0, nullptr, nullptr);
    throw;
  }
  sqlite3_trace_v2(db.handle(), 0, nullptr, nullptr);
  return traced;
}

std::int64_t step_through(Database& db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db.handle(), sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sqlite3_errmsg(db.handle()));
  }
  std::int64_t rows = 0;
  int status = SQLITE_ROW;
  while ((status = sqlite3_step(statement)) == SQLITE_ROW) {
    for (int column = 0; column < sqlite3_column_count(statement); ++column)
      benchmark::DoNotOptimize(sqlite3_column_text(statement, column));
    ++rows;
  }
  sqlite3_finalize(statement);
  if (status != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(db.handle()));
  return rows;
}

}  // namespace quarry::bench
