#!/usr/bin/env bash
# Installs what the tests need, checks that the macOS build compiles, builds,
# and runs every test through CTest: once in a normal build (with the
# two-minute load test) and once under AddressSanitizer and
# UndefinedBehaviorSanitizer; then a short run of each fuzzer.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
./scripts/macos-check.sh

jobs=$(nproc)
run_suite() {
  local dir=$1 ctest_args=$2; shift 2
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" $ctest_args)
}

run_suite build ""
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run_suite build-asan "-LE load" -DZQ_SANITIZE=ON
./scripts/fuzz.sh "${ZQ_FUZZ_SECONDS:-30}"
