#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for SECONDS
# (default 60) inside private mount namespaces.  A crash fails the run and
# leaves its input in build-fuzz/crashes.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DZQ_FUZZ=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build-fuzz -j "$(nproc)" --target FuzzPipeDataWrapper FuzzDispatcher FuzzBitlockerVolume
mkdir -p build-fuzz/crashes
# The volume fuzzer starts from the metadata blocks of the shared images,
# made afresh in the build folder and never kept in the project.
seed_volume_corpus() {
  local tarball=../shared/bitlocker-images.tar.xz corpus=build-fuzz/corpus/FuzzBitlockerVolume
  [ -f "$tarball" ] || return 0
  mkdir -p "$corpus"
  local images
  images=$(mktemp -d)
  tar -S -xJf "$tarball" -C "$images"
  python3 - "$corpus" "$images"/*/*.img <<'PY'
import struct, sys
corpus = sys.argv[1]
for image in sys.argv[2:]:
    with open(image, 'rb') as device:
        header = device.read(512)
        at = 176 if header[3:11] == b'-FVE-FS-' else 440
        device.seek(struct.unpack_from('<Q', header, at)[0])
        block = device.read(16383)
    with open(corpus + '/seed-' + image.rsplit('/', 1)[1], 'wb') as seed:
        seed.write(b'\0' + block)
PY
  rm -rf "$images"
}
seed_volume_corpus

# Each target with the longest input it takes: a block's payload, or a
# metadata block.
for run in FuzzPipeDataWrapper:512 FuzzDispatcher:512 FuzzBitlockerVolume:16384; do
  target=${run%:*}
  mkdir -p "build-fuzz/corpus/$target"
  unshare --mount --propagation private sh -c '
    mount -t tmpfs tmpfs /tmp && mkdir -p /Library && mount -t tmpfs tmpfs /Library &&
    exec "$@"' sh "build-fuzz/tests/fuzz/$target" -max_total_time="$seconds" -max_len="${run#*:}" \
      -artifact_prefix=build-fuzz/crashes/ "build-fuzz/corpus/$target" 2>&1 | tail -3
done
