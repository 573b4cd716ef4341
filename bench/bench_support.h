// Shared by the benchmark programs: peak memory per benchmark, the generated indexes of
// each scale, and the statements an operation runs.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "generate_index.h"
#include "storage/repository.h"

namespace quarry::bench {

// The peak memory of one benchmark. Peak resident size only grows within a process, so
// the constructor returns freed heap to the system and restarts the kernel's high-water
// mark at the current resident size (Linux: /proc/self/clear_refs); from then on
// getrusage's ru_maxrss is the peak of this benchmark alone. Construct it after the
// setup that the measurement should not include and before the timed loop.
class PeakMemory {
 public:
  PeakMemory();
  // Sets the counters "peak_MB" (the process's peak since construction: what was
  // resident then, the setup included, plus what the work added at its height) and
  // "extra_MB" (that peak less what was resident at construction: the work's own).
  // When the mark cannot be restarted, "peak_MB" is the peak since the process started.
  void report(benchmark::State& state) const;

 private:
  double start_mb_;
  bool restarted_;
};

// The megabytes resident now.
double resident_mb();

// The index of `scale` (generated on first use, see cached_index), opened read-only once
// per process.
Repository& repository(Scale scale);

// The scale a benchmark argument stands for: 0 S, 1 M, 2 L.
Scale scale_arg(std::int64_t arg);

// A statement as the operation ran it: its text with placeholders, and with the bound
// values written in.
struct TracedStatement {
  std::string sql;
  std::string expanded;
};

// The statements that `work` runs on `db`, in order, by tracing the connection.
std::vector<TracedStatement> trace_statements(Database& db, const std::function<void()>& work);

// Runs `sql` (no parameters) to its end, reading each column of every row as SQLite
// gives it, without copying: the time SQLite alone takes. Returns the number of rows.
std::int64_t step_through(Database& db, const std::string& sql);

}  // namespace quarry::bench
