#!/usr/bin/env bash
# Runs every fuzz target for the given seconds, two at a time, and writes a
# line of results per target to build-fuzz/fuzz-results.txt.
#   bash scripts/fuzz-all.sh 600
set -uo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-600}"
targets=(dbf memo bundle regions crcfiles cycle apply merge subset combine)
mkdir -p build-fuzz/logs
run() {
  local target=$1
  bash scripts/fuzz.sh "$target" "$seconds" > "build-fuzz/logs/$target.log" 2>&1
  local rc=$?
  local runs
  runs=$(grep -o 'Done [0-9]* runs in [0-9]* second' "build-fuzz/logs/$target.log" | tail -1)
  local found
  found=$(ls "build-fuzz/artifacts/$target" 2>/dev/null | wc -l)
  echo "$target exit=$rc ${runs:-no summary} findings=$found" >> build-fuzz/fuzz-results.txt
}
: > build-fuzz/fuzz-results.txt
for ((i = 0; i < ${#targets[@]}; i += 2)); do
  run "${targets[i]}" &
  [ $((i + 1)) -lt ${#targets[@]} ] && run "${targets[i + 1]}" &
  wait
done
cat build-fuzz/fuzz-results.txt
