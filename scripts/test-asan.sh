#!/usr/bin/env bash
# The whole C++ test suite built with AddressSanitizer, LeakSanitizer and
# UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build-asan
generator=()
command -v ninja >/dev/null && generator=(-G Ninja)
cmake -S . -B "$build" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTARN_SANITIZE=ON \
  -DTARN_BUILD_ADDON=OFF -DTARN_BUILD_TESTS=ON -DTARN_BUILD_BENCH=OFF -DTARN_BUILD_SHARED=OFF \
  -DTARN_BUILD_FAULT_DRIVER=OFF -DTARN_DEVELOPER=OFF >/dev/null
cmake --build "$build"
jobs=$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)
[ "$jobs" -ge 2 ] 2>/dev/null || jobs=2
ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir "$build" --output-on-failure --no-tests=error -j"$jobs"
