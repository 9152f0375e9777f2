#!/usr/bin/env bash
# Installs what the tests need, checks that the macOS build compiles, builds,
# and runs every test through CTest: once in a normal build (with the
# two-minute load test) and once under AddressSanitizer and
# UndefinedBehaviorSanitizer; then a short run of each fuzzer.  Run as root,
# a test that skips fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/install-deps.sh
./scripts/macos-check.sh

jobs=$(nproc)
run_suite() {
  local dir=$1 ctest_args=$2; shift 2
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" $ctest_args) | tee "$dir/ctest.log"
  # As root, with everything installed, no test has a reason to skip.
  if [ "$(id -u)" -eq 0 ] && grep -q '(Skipped)' "$dir/ctest.log"; then
    echo "these tests skipped although the suite runs as root:" >&2
    grep '(Skipped)' "$dir/ctest.log" >&2
    exit 1
  fi
}

run_suite build ""
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run_suite build-asan "-LE load" -DZQ_SANITIZE=ON
./scripts/fuzz.sh "${ZQ_FUZZ_SECONDS:-30}"
