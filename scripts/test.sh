#!/usr/bin/env bash
# Builds a configuration (release unless one is named) and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-release}"
./scripts/install-deps.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" -j2
