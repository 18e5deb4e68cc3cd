#!/usr/bin/env bash
# Checks every C/C++ file of the repository against .clang-format and runs
# clang-tidy with the checks of .clang-tidy over every source of a build's
# compile_commands.json. Any difference in format and any clang-tidy finding
# fail the run.
#
#   scripts/lint.sh              check format and clang-tidy
#   scripts/lint.sh --fix        format the files in place (clang-tidy only reports)
#   scripts/lint.sh --format     only the format check
#   scripts/lint.sh --tidy       only clang-tidy
#
# clang-tidy reads build/release/compile_commands.json (VYN_LINT_BUILD names
# another build folder); the release configuration is created when missing.
# It runs one process per core (VYN_LINT_JOBS overrides).
set -euo pipefail
cd "$(dirname "$0")/.."
fix=0 format=1 tidy=1
for argument in "$@"; do
  case $argument in
    --fix) fix=1 ;;
    --format) tidy=0 ;;
    --tidy) format=0 ;;
    *) echo "usage: $0 [--fix] [--format|--tidy]" >&2; exit 2 ;;
  esac
done
clang_format=clang-format-14
clang_tidy=clang-tidy-14
build=${VYN_LINT_BUILD:-build/release}
jobs=${VYN_LINT_JOBS:-$(nproc)}
failed=0

# The tracked files and new ones not yet added, never the build trees.
sources() {
  git ls-files -z --cached --others --exclude-standard -- \
      '*.c' '*.cc' '*.cpp' '*.h' '*.hpp' | xargs -0 -r ls -d 2>/dev/null
}

if [ "$format" -eq 1 ]; then
  if [ "$fix" -eq 1 ]; then
    sources | xargs -r -d '\n' "$clang_format" -i
  else
    # One file name per line for every file whose format differs.
    unformatted=$(sources | xargs -r -d '\n' -P "$jobs" -n 20 \
                    sh -c 'for f; do "$0" --dry-run --Werror "$f" >/dev/null 2>&1 || echo "$f"; done' \
                    "$clang_format" | sort)
    if [ -n "$unformatted" ]; then
      count=$(printf '%s\n' "$unformatted" | wc -l)
      printf '%s\n' "$unformatted"
      echo "clang-format: $count file(s) differ from .clang-format (scripts/lint.sh --fix formats them)"
      failed=1
    else
      echo "clang-format: every file is formatted"
    fi
  fi
fi

if [ "$tidy" -eq 1 ]; then
  if [ ! -f "$build/compile_commands.json" ]; then
    cmake --preset release >/dev/null
    build=build/release
  fi
  # Generated sources (the embedded key material) need a build to exist;
  # the sources checked are ours, those of the repository.
  files=$(sources | grep -E '\.(c|cc|cpp)$' | sed "s|^|$PWD/|")
  # Only files that the build compiles: a source for another system or
  # configuration (fuzz targets in a build without them) has no command.
  listed=$(python3 -c 'import json,sys; print("\n".join(sorted({e["file"] for e in json.load(open(sys.argv[1]))})))' \
             "$build/compile_commands.json")
  checked=$(comm -12 <(printf '%s\n' "$files" | sort) <(printf '%s\n' "$listed"))
  echo "clang-tidy: $(printf '%s\n' "$checked" | grep -c .) files, $jobs at a time"
  log=$(mktemp)
  commands=$(mktemp -d)
  trap 'rm -rf "$log" "$commands"' EXIT
  # GCC-only options (-fno-gnu-unique) would be errors to clang's driver.
  python3 -c 'import json,sys
entries = json.load(open(sys.argv[1]))
for e in entries:
    e["command"] = e["command"].replace(" -fno-gnu-unique", "")
json.dump(entries, open(sys.argv[2], "w"))' "$build/compile_commands.json" "$commands/compile_commands.json"
  # --quiet drops the counts of suppressed warnings; any warning left is a
  # finding (WarningsAsErrors in .clang-tidy makes it an error).
  if ! printf '%s\n' "$checked" |
       xargs -r -d '\n' -P "$jobs" -n 4 "$clang_tidy" --quiet -p "$commands" >"$log" 2>&1 ||
       grep -q -E '(warning|error):' "$log"; then
    grep -E -A3 '(warning|error):' "$log" || cat "$log"
    echo "clang-tidy: findings above"
    failed=1
  else
    echo "clang-tidy: no findings"
  fi
fi
exit $failed
