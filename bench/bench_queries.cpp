// The quality queries on the generated indexes of scales S, M and L (argument 0, 1, 2):
// callers, impact from a hub, dead-code pages and dependency cycles, each with its peak
// memory. The file-level cycles are set beside the time SQLite alone takes to run the
// statement that joins the file dependencies in SQL.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <random>

#include "bench_support.h"

namespace {

using quarry::bench::PeakMemory;
using quarry::bench::repository;
using quarry::bench::Scale;
using quarry::bench::scale_arg;

// `count` functions and methods that some edge may reach, spread over the whole index
// and the same on every run.
std::vector<std::int64_t> sample_ids(Scale scale, std::size_t count) {
  static std::map<Scale, std::vector<std::int64_t>> callables;
  auto& ids = callables[scale];
  if (ids.empty()) {
    for (const quarry::Row& row : repository(scale).db().fetchall(
             "SELECT id FROM symbols WHERE kind IN ('function', 'method') AND id % 8 != 0 "
             "ORDER BY id")) {
      ids.push_back(quarry::to_int(row.at(0)));
    }
  }
  std::mt19937_64 rng(7);
  std::vector<std::int64_t> sample(count);
  for (auto& id : sample)
    id = ids[rng() % ids.size()];
  return sample;
}

void BM_CallersOf(benchmark::State& state) {
  const Scale scale = scale_arg(state.range(0));
  const auto count = static_cast<std::size_t>(state.range(1));
  auto& repo = repository(scale);
  // One id at a time goes round a hundred different ones.
  const auto ids = sample_ids(scale, std::max<std::size_t>(count, 100));
  std::size_t round = 0;
  std::size_t callers = 0;
  PeakMemory memory;
  for (auto _ : state) {
    std::vector<std::int64_t> asked;
    if (count == 1) {
      asked.push_back(ids[round++ % ids.size()]);
    } else {
      asked.assign(ids.begin(), ids.begin() + static_cast<std::ptrdiff_t>(count));
    }
    const auto found = repo.callers_of(asked);
    callers = found.size();
    benchmark::DoNotOptimize(found);
  }
  memory.report(state);
  state.counters["callers"] = static_cast<double>(callers);
}

// Impact from the busiest hub; with `statements`, every level by the caller statements
// (as before the call graph could be read into memory), and afterwards, untimed, the check
// that the default walk gives the same analysis, record for record.
void impact_from_hub(benchmark::State& state, bool statements) {
  auto& repo = repository(scale_arg(state.range(0)));
  const std::string hub = quarry::bench::hub_fqn(0);
  std::size_t callers = 0;
  std::optional<quarry::ImpactAnalysis> last;
  PeakMemory memory;
  for (auto _ : state) {
    auto impact = repo.analyze_impact_walk(
        hub, state.range(1), false,
        statements ? std::optional(std::numeric_limits<std::size_t>::max()) : std::nullopt);
    callers = impact.direct_callers.size() + impact.transitive_callers.size();
    benchmark::DoNotOptimize(impact);
    if (statements) last = std::move(impact);
  }
  memory.report(state);
  state.counters["callers"] = static_cast<double>(callers);
  if (last) {
    const bool same = repo.analyze_impact_walk(hub, state.range(1), false, std::nullopt) == *last;
    state.counters["same_in_memory"] = same ? 1 : 0;
    if (!same) state.SkipWithError("the walk in memory differs from the caller statements");
  }
}

// The fqn of a median symbol: of 101 sampled functions and methods, the one in the middle
// by its number of direct proven callers.
std::string median_fqn(Scale scale) {
  auto& repo = repository(scale);
  std::vector<std::pair<std::size_t, std::int64_t>> counted;
  for (const std::int64_t id : sample_ids(scale, 101))
    counted.emplace_back(repo.callers_of({id}).size(), id);
  std::sort(counted.begin(), counted.end());
  const auto row = repo.db().fetchone("SELECT fqn FROM symbols WHERE id = ?",
                                      {counted[counted.size() / 2].second});
  return quarry::to_text(row->at(0));
}

void BM_ImpactFromMedian(benchmark::State& state) {
  const Scale scale = scale_arg(state.range(0));
  auto& repo = repository(scale);
  const std::string fqn = median_fqn(scale);
  std::size_t callers = 0;
  PeakMemory memory;
  for (auto _ : state) {
    const auto impact = repo.analyze_impact(fqn, state.range(1));
    callers = impact.direct_callers.size() + impact.transitive_callers.size();
    benchmark::DoNotOptimize(impact);
  }
  memory.report(state);
  state.counters["callers"] = static_cast<double>(callers);
}

void BM_ImpactFromHub(benchmark::State& state) {
  impact_from_hub(state, false);
}
void BM_ImpactFromHubStatements(benchmark::State& state) {
  impact_from_hub(state, true);
}

// The row counts of every table, which the impact score read before it counted the files
// alone.
void BM_Stats(benchmark::State& state) {
  auto& repo = repository(scale_arg(state.range(0)));
  for (auto _ : state)
    benchmark::DoNotOptimize(repo.get_stats());
}

// One page of dead code: the first or one 90% down the listing, by get_dead_code (in
// memory) or by the statements, which are then checked against the page in memory.
void dead_code_page(benchmark::State& state, bool late, bool by_statements) {
  auto& repo = repository(scale_arg(state.range(0)));
  quarry::DeadCodeOptions options{.runtime_members = {"get", "append", "items"}};
  if (late) {
    quarry::DeadCodeOptions count = options;
    count.limit = 0;
    options.offset = repo.get_dead_code(count).total_count * 9 / 10;
  }
  std::optional<quarry::DeadCodePage> last;
  PeakMemory memory;
  for (auto _ : state) {
    last = by_statements ? repo.dead_code_by_statements(options) : repo.get_dead_code(options);
    benchmark::DoNotOptimize(*last);
  }
  memory.report(state);
  state.counters["candidates"] = static_cast<double>(last ? last->total_count : 0);
  state.counters["offset"] = static_cast<double>(options.offset);
  if (by_statements && last) {
    const bool same = repo.get_dead_code(options) == *last;
    state.counters["same_in_memory"] = same ? 1 : 0;
    if (!same) state.SkipWithError("the listing in memory differs from the statements'");
  }
}

void BM_DeadCodeFirstPage(benchmark::State& state) {
  dead_code_page(state, false, false);
}
void BM_DeadCodeLatePage(benchmark::State& state) {
  dead_code_page(state, true, false);
}
void BM_DeadCodeFirstPageStatements(benchmark::State& state) {
  dead_code_page(state, false, true);
}

void cycles(benchmark::State& state, const char* level) {
  auto& repo = repository(scale_arg(state.range(0)));
  std::size_t found = 0;
  PeakMemory memory;
  for (auto _ : state) {
    const auto entries = repo.find_circular_dependencies(level);
    found = entries.size();
    benchmark::DoNotOptimize(entries);
  }
  memory.report(state);
  state.counters["cycles"] = static_cast<double>(found);
}

void BM_CyclesComponent(benchmark::State& state) {
  cycles(state, "component");
}
void BM_CyclesFile(benchmark::State& state) {
  cycles(state, "file");
}

// The file-level cycles as they were built before: the graph from the pairs of paths of
// the one statement that joins the dependencies in SQL.
void BM_CyclesFileByStatement(benchmark::State& state) {
  auto& repo = repository(scale_arg(state.range(0)));
  std::size_t found = 0;
  PeakMemory memory;
  for (auto _ : state) {
    quarry::DependencyGraph::Builder graph;
    for (const auto& [source, target] : repo.production_file_dependencies()) {
      graph.add_edge(source, target);
      graph.add_node(target);
    }
    const auto entries = quarry::condense_cycles(graph.build(), "file");
    found = entries.size();
    benchmark::DoNotOptimize(entries);
  }
  memory.report(state);
  state.counters["cycles"] = static_cast<double>(found);
}

// The one statement that joins the file-level dependencies in SQL (what the file-level
// cycles ran before they joined the tables in memory), stepped through by SQLite alone.
void BM_CyclesFileStatement(benchmark::State& state) {
  auto& repo = repository(scale_arg(state.range(0)));
  const std::string sql = quarry::detail::production_file_dependencies_sql();
  std::int64_t rows = 0;
  PeakMemory memory;
  for (auto _ : state)
    rows = quarry::bench::step_through(repo.db(), sql);
  memory.report(state);
  state.counters["rows"] = static_cast<double>(rows);
}

void scales(benchmark::internal::Benchmark* b) {
  b->ArgName("scale")->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(BM_CallersOf)
    ->ArgNames({"scale", "ids"})
    ->ArgsProduct({{0, 1, 2}, {1, 100, 5000}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImpactFromHub)
    ->ArgNames({"scale", "depth"})
    ->ArgsProduct({{0, 1, 2}, {1, 5}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImpactFromHubStatements)
    ->ArgNames({"scale", "depth"})
    ->ArgsProduct({{0, 1, 2}, {5}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Stats)->Apply(scales);
BENCHMARK(BM_ImpactFromMedian)
    ->ArgNames({"scale", "depth"})
    ->ArgsProduct({{0, 1, 2}, {5}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DeadCodeFirstPage)->Apply(scales);
BENCHMARK(BM_DeadCodeLatePage)->Apply(scales);
BENCHMARK(BM_DeadCodeFirstPageStatements)->Apply(scales);
BENCHMARK(BM_CyclesComponent)->Apply(scales);
BENCHMARK(BM_CyclesFile)->Apply(scales);
BENCHMARK(BM_CyclesFileByStatement)->Apply(scales);
BENCHMARK(BM_CyclesFileStatement)->Apply(scales);

BENCHMARK_MAIN();
