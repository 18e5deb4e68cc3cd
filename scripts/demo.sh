#!/usr/bin/env bash
# Builds the release configuration and runs the main job, vyn demo.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target vyn_tool
exec ./build/release/tools/vyn demo "$@"
