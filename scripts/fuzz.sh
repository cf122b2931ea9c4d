#!/usr/bin/env bash
# Builds one fuzz target with clang and the sanitizers and runs it.
#   npm run fuzz -- <target> <seconds>     e.g. npm run fuzz -- dbf 600
# Seeds come from the sample writers (fuzz/seeds.js); findings land in
# build-fuzz/artifacts/<target>/.
set -euo pipefail
cd "$(dirname "$0")/.."
target="${1:?usage: npm run fuzz -- <target> <seconds>}"
seconds="${2:-60}"
build=build-fuzz
if [ ! -f "$build/build.ninja" ] && [ ! -f "$build/Makefile" ]; then
  generator=()
  command -v ninja >/dev/null && generator=(-G Ninja)
  CC=clang CXX=clang++ cmake -S . -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DTARN_FUZZ=ON -DTARN_BUILD_ADDON=OFF -DTARN_DEVELOPER=OFF >/dev/null
fi
cmake --build "$build" --target "fuzz_$target"
corpus="$build/corpus/$target"
seeds="$build/seeds/$target"
artifacts="$build/artifacts/$target"
mkdir -p "$corpus" "$seeds" "$artifacts"
node fuzz/seeds.js "$target" "$seeds"
# The memory limits are far above what any of the library's readers needs:
# an allocation sized from a header instead of from the file trips them.
exec "$build/fuzz_$target" -max_total_time="$seconds" -rss_limit_mb=2048 -malloc_limit_mb=256 \
  -timeout=30 -print_final_stats=1 -artifact_prefix="$artifacts/" "$corpus" "$seeds"
