#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for SECONDS
# (default 60) inside private mount namespaces.  A crash fails the run and
# leaves its input in build-fuzz/crashes.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DZQ_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz -j "$(nproc)" --target FuzzPipeDataWrapper FuzzDispatcher
mkdir -p build-fuzz/crashes
for target in FuzzPipeDataWrapper FuzzDispatcher; do
  mkdir -p "build-fuzz/corpus/$target"
  unshare --mount --propagation private sh -c '
    mount -t tmpfs tmpfs /tmp && mkdir -p /Library && mount -t tmpfs tmpfs /Library &&
    exec "$@"' sh "build-fuzz/tests/fuzz/$target" -max_total_time="$seconds" -max_len=512 \
      -artifact_prefix=build-fuzz/crashes/ "build-fuzz/corpus/$target" 2>&1 | tail -3
done
