#!/usr/bin/env bash
# Installs the Debian packages that quarry needs and that are not installed yet.
set -euo pipefail

PACKAGES=(g++ cmake ninja-build pkg-config libsqlite3-dev libgtest-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev libfmt-dev graphviz)

missing=()
for package in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
echo "Installing: ${missing[*]}" >&2
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
