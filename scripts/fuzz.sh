#!/usr/bin/env bash
# Builds the fuzz preset (clang-14, libFuzzer, ASan + UBSan) and runs every
# fuzz target for the given number of seconds each (default 20). Corpora
# grow in build/fuzz/corpus/<target>, seeded from fuzz/corpus/<target>.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-20}"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
status=0
for target in assembler parsers firmware_file ini; do
  corpus="build/fuzz/corpus/$target"
  mkdir -p "$corpus"
  echo "== vyn_fuzz_$target for $seconds s"
  ./build/fuzz/fuzz/"vyn_fuzz_$target" -max_total_time="$seconds" -max_len=4096 \
    -print_final_stats=1 -artifact_prefix="build/fuzz/$target-" \
    "$corpus" "fuzz/corpus/$target" || status=$?
done
exit "$status"
