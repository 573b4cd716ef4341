#!/usr/bin/env bash
# Compares the dead-code listings of two quarry binaries on the same indexes, byte for byte:
# the whole listing (every row with every field, total_count and truncated) and a set of
# pages that cross the boundaries of the listing (first rows, the certain/likely border,
# the end, past the end, limit 0). It reports the wall time of the whole listing for each
# binary as it goes.
#
#   bash bench/dead_code_identity.sh BEFORE AFTER DB...
#
# BEFORE and AFTER are quarry executables (build one at the older commit); each DB is an
# index, e.g. one written by build/bench/generate_index or by quarry index on a tree from
# build/bench/python_tree. The exit status is 1 when any listing differs.
set -euo pipefail

if [[ $# -lt 3 ]]; then
  echo "usage: $0 BEFORE AFTER DB..." >&2
  exit 2
fi
before=$(realpath "$1")
after=$(realpath "$2")
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# No configuration or baseline from the working directory may change either listing.
cd "$work"

# Runs BINARY on DB with the page arguments and writes its JSON to OUT; prints the seconds.
listing() {
  local binary=$1 db=$2 out=$3
  shift 3
  local start end
  start=$(date +%s.%N)
  "$binary" --db "$db" dead-code --format json "$@" > "$out"
  end=$(date +%s.%N)
  echo "$end - $start" | bc
}

status=0
for db in "$@"; do
  db=$(realpath "$db")
  echo "== $db"
  t_before=$(listing "$before" "$db" "$work/before.json" --limit 100000000)
  t_after=$(listing "$after" "$db" "$work/after.json" --limit 100000000)
  if cmp -s "$work/before.json" "$work/after.json"; then
    echo "whole listing identical ($(stat -c %s "$work/after.json") bytes): before ${t_before}s, after ${t_after}s"
  else
    echo "whole listing DIFFERS"
    status=1
  fi
  total=$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["total_count"])' \
    "$work/after.json")
  certain=$(python3 -c 'import json,sys; print(sum(s["confidence"] == "certain" for s in json.load(open(sys.argv[1]))["symbols"]))' \
    "$work/after.json")
  echo "candidates: $total ($certain certain)"
  pages=("--limit 100 --offset 0" "--limit 0 --offset 0" "--limit 7 --offset $((certain > 3 ? certain - 3 : 0))"
    "--limit 50 --offset $((total > 20 ? total - 20 : 0))" "--limit $total --offset 0"
    "--limit 10 --offset $total" "--limit 10 --offset $((total + 5))" "--limit 0 --offset $((total / 2))")
  for page in "${pages[@]}"; do
    # shellcheck disable=SC2086
    listing "$before" "$db" "$work/before.json" $page > /dev/null
    # shellcheck disable=SC2086
    listing "$after" "$db" "$work/after.json" $page > /dev/null
    if cmp -s "$work/before.json" "$work/after.json"; then
      echo "page $page: identical"
    else
      echo "page $page: DIFFERS"
      status=1
    fi
  done
done
exit $status
