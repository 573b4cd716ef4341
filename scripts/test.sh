#!/usr/bin/env bash
# Installs what is missing, then builds and runs the whole test suite twice: as built for
# use, and under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

run_suite() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir"
  ctest --test-dir "$dir" --output-on-failure -j "$(nproc)"
}

echo "== tests" >&2
run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUARRY_WERROR=ON
echo "== tests under AddressSanitizer and UndefinedBehaviorSanitizer" >&2
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run_suite build-sanitize -DCMAKE_BUILD_TYPE=Debug -DQUARRY_SANITIZE=ON -DQUARRY_BUILD_BENCH=OFF \
  -DQUARRY_WERROR=ON
