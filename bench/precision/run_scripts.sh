#!/usr/bin/env bash
# Precision of quarry's dead code on real JavaScript and TypeScript, beside knip and madge:
# builds quarry in build/ (or $BUILD) when needed, then runs the harness, which fetches the
# pinned npm packages of the code bases and installs the pinned peers (peers/) with npm ci
# into the results directory. Arguments go to script_precision.py, for example
#   bash bench/precision/run_scripts.sh --only rxjs,nodemon
#   bash bench/precision/run_scripts.sh --no-peers
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${BUILD:-build}
if [ ! -d grammars/node_modules ]; then
  echo "run_scripts.sh: grammars/node_modules is missing; run scripts/install-deps.sh first" >&2
  exit 2
fi
[ -f "$build/build.ninja" ] || cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" --target quarry >/dev/null
exec /usr/bin/python3 bench/precision/script_precision.py --quarry "$build/quarry" --results "$build/precision" "$@"
