#!/usr/bin/env bash
# Builds and runs the benchmarks: the quality queries on the generated indexes of scales
# S, M and L (made on first use and kept in BUILD/bench/indexes, or in
# $QUARRY_BENCH_INDEXES), then the strongly connected components of million-node graphs
# beside Boost.Graph's. Each benchmark runs three times, interleaved with the others, and
# the mean, median and spread are reported. Arguments go to both programs after these
# defaults, for example
#   bash bench/run.sh --benchmark_filter='scale:2|chain:0'
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD:-build}
cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" --target bench_queries bench_cycles explain_queries
defaults=(--benchmark_repetitions=3 --benchmark_enable_random_interleaving=true
  --benchmark_report_aggregates_only=true)
"$build/bench/bench_queries" "${defaults[@]}" "$@"
"$build/bench/bench_cycles" "${defaults[@]}" "$@"
