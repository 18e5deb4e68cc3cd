#!/usr/bin/env bash
# Plants one fault at a time in the source tree, rebuilds what the fault
# touches and runs the tests that should notice it. Prints "caught" or
# "MISSED" per fault and a summary; a fault whose text is not found exactly
# once is reported as "stale" (the code moved: update its line), one that
# does not compile as "broken"; both count against the run.
#
#   scripts/mutants.sh                  every fault in scripts/mutants/*.txt
#   scripts/mutants.sh serial           only the faults of scripts/mutants/serial.txt
#   scripts/mutants.sh serial 3         only the third fault of that file
#
# A fault is one line of a scripts/mutants/<area>.txt file, five fields
# separated by tabs:
#   name  file  text-to-find  replacement  test-labels (comma-separated)
# In the text and the replacement, \n stands for a line break and \t for a
# tab. Lines starting with # and empty lines are skipped.
#
# The tree is built in build/mutants (release, no benchmarks); every planted
# file is restored from a copy when the fault is done, also on Ctrl-C.
# Runs by hand: a full pass takes tens of minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=build/mutants
only_area="${1:-}"
only_index="${2:-}"

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVYN_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" >/dev/null

backup=""
planted=""
restore() {
  if [ -n "$planted" ]; then
    cp "$backup" "$root/$planted"
    planted=""
  fi
}
trap 'restore; exit 130' INT TERM
trap restore EXIT
backup=$(mktemp)

caught=0
missed=0
stale=0
missed_names=()

for list in scripts/mutants/*.txt; do
  area=$(basename "$list" .txt)
  [ -n "$only_area" ] && [ "$area" != "$only_area" ] && continue
  index=0
  while IFS= read -r line || [ -n "$line" ]; do
    case "$line" in '' | '#'*) continue ;; esac
    # Split by hand: read with IFS=tab would merge an empty replacement
    # with its neighbours, since a tab counts as white space there.
    name=${line%%$'\t'*}; line=${line#*$'\t'}
    file=${line%%$'\t'*}; line=${line#*$'\t'}
    find=${line%%$'\t'*}; line=${line#*$'\t'}
    replace=${line%%$'\t'*}; labels=${line#*$'\t'}
    index=$((index + 1))
    [ -n "$only_index" ] && [ "$index" != "$only_index" ] && continue
    tag="$area/$index $name"
    if [ ! -f "$file" ] || [ -z "$labels" ]; then
      echo "stale   $tag (no file $file or no labels)"
      stale=$((stale + 1))
      continue
    fi
    count=$(FIND="$find" perl -0ne '$f=$ENV{FIND}; $f=~s/\\n/\n/g; $f=~s/\\t/\t/g; $n=()=/\Q$f\E/g; print $n' "$file")
    if [ "$count" != 1 ]; then
      echo "stale   $tag (text found $count times in $file)"
      stale=$((stale + 1))
      continue
    fi
    cp "$file" "$backup"
    planted="$file"
    FIND="$find" REPLACE="$replace" perl -0pi -e '$f=$ENV{FIND}; $r=$ENV{REPLACE}; for ($f,$r) { s/\\n/\n/g; s/\\t/\t/g } s/\Q$f\E/$r/' "$file"
    targets=()
    regex=""
    IFS=',' read -ra parts <<<"$labels"
    for label in "${parts[@]}"; do
      targets+=("vyn_${label}_tests")
      regex="${regex:+$regex|}^${label}\$"
    done
    if ! cmake --build "$build" --target "${targets[@]}" >/dev/null 2>&1; then
      verdict="broken"
    elif ctest --test-dir "$build" -L "$regex" -j2 --timeout 120 >/dev/null 2>&1; then
      verdict="MISSED"
    else
      verdict="caught"
    fi
    restore
    if [ "$verdict" = MISSED ]; then
      missed=$((missed + 1))
      missed_names+=("$tag")
    elif [ "$verdict" = broken ]; then
      # A fault that does not compile proves nothing about the tests.
      stale=$((stale + 1))
    else
      caught=$((caught + 1))
    fi
    echo "$verdict  $tag"
  done <"$list"
done

# Leave the build as the tree is, so the next run starts from the real code.
cmake --build "$build" >/dev/null 2>&1 || true
echo "caught $caught, missed $missed, stale $stale"
for n in "${missed_names[@]}"; do echo "missed: $n"; done
[ "$missed" -eq 0 ] && [ "$stale" -eq 0 ]
