#!/usr/bin/env bash
# Installs what is missing, builds quarry and asks it about the bundled example index.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build

echo
echo "\$ quarry --db build/example.db callers shop.cart.Cart.total"
build/quarry --db build/example.db callers shop.cart.Cart.total
