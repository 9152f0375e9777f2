#!/usr/bin/env bash
# Installs the build dependencies and builds the bundle, zqctl and the tests
# into ./build.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)"
