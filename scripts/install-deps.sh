#!/usr/bin/env bash
# Installs the Debian packages that quarry needs and that are not installed yet.
set -euo pipefail

PACKAGES=(g++ cmake ninja-build pkg-config git libsqlite3-dev libgtest-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev libtree-sitter-dev graphviz libboost-graph-dev
  libtomlplusplus-dev libmimalloc-dev python3-jsonschema)

missing=()
for package in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
# npm fetches the pinned grammars; a machine may already have it from elsewhere.
if ! command -v npm >/dev/null 2>&1; then
  missing+=(npm)
fi

if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
  fi
  echo "Installing: ${missing[*]}" >&2
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi

# The tree-sitter grammars, as pinned by grammars/package-lock.json. Only their generated C
# sources are used: no install scripts run.
cd "$(dirname "$0")/.."
if [ ! -f grammars/node_modules/.package-lock.json ] ||
  [ grammars/package-lock.json -nt grammars/node_modules/.package-lock.json ]; then
  npm ci --ignore-scripts --no-audit --no-fund --silent --prefix grammars
fi
# The SARIF 2.1.0 schema that the tests validate quarry's SARIF output against, as pinned by
# tests/sarif/package-lock.json; only its JSON file is used.
if [ ! -f tests/sarif/node_modules/.package-lock.json ] ||
  [ tests/sarif/package-lock.json -nt tests/sarif/node_modules/.package-lock.json ]; then
  npm ci --ignore-scripts --no-audit --no-fund --silent --prefix tests/sarif
fi
