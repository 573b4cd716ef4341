#!/usr/bin/env bash
# Precision of quarry's dead code on real libraries, beside vulture's: builds quarry in
# build/ (or $BUILD) when needed, then runs the harness, which installs the libraries'
# Debian packages when missing. Arguments go to precision.py, for example
#   bash bench/precision/run.sh --only flask,click
#   bash bench/precision/run.sh --certain requests
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${BUILD:-build}
if [ ! -d grammars/node_modules ]; then
  echo "run.sh: grammars/node_modules is missing; copy it in before building quarry" >&2
  exit 2
fi
[ -f "$build/build.ninja" ] || cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" --target quarry parse_floor >/dev/null
exec /usr/bin/python3 bench/precision/precision.py --quarry "$build/quarry" --results "$build/precision" "$@"
