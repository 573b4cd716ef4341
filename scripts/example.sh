#!/usr/bin/env bash
# Installs what is missing, builds quarry, indexes the bundled example projects (Python, and
# JavaScript with TypeScript) and prints the reports about them.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build

quarry=build/quarry
db=examples/bookstore/.quarry/index.db
show() {
  echo
  echo "\$ quarry $*"
  "$quarry" "$@"
}
show index examples/bookstore
show --db "$db" dead-code
show --db "$db" cycles
show --db "$db" cycles --level file
show --db "$db" callers bookstore.pricing.price_with_tax
show --db "$db" impact bookstore.pricing.price_with_tax

# The JavaScript and TypeScript example beside it.
db=examples/storefront/.quarry/index.db
show index examples/storefront
show --db "$db" dead-code
show --db "$db" cycles --level file
show --db "$db" callers src/cart.Cart.total
