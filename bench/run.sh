#!/usr/bin/env bash
# Builds and runs the benchmarks: the quality queries on the generated indexes of scales
# S, M and L (made on first use and kept in BUILD/bench/indexes, or in
# $QUARRY_BENCH_INDEXES), then the strongly connected components of million-node graphs
# beside Boost.Graph's. Arguments go to both programs, for example
#   bash bench/run.sh --benchmark_filter='scale:2|chain:0'
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD:-build}
cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" --target bench_queries bench_cycles explain_queries
"$build/bench/bench_queries" "$@"
"$build/bench/bench_cycles" "$@"
