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
# made afresh in the build folder and never kept in the project, and from
# changed copies of them: conversion fields that contradict each other or
# that the engine does not know, and whole small devices whose header
# carries the encrypt-on-write identifier or an unknown one.
seed_volume_corpus() {
  local corpus=build-fuzz/corpus/FuzzBitlockerVolume tarballs=()
  for tarball in ../shared/bitlocker-images.tar.xz ../shared/bitlocker-eow.tar.xz; do
    [ -f "$tarball" ] && tarballs+=("$tarball")
  done
  [ ${#tarballs[@]} -gt 0 ] || return 0
  mkdir -p "$corpus"
  local images
  images=$(mktemp -d)
  for tarball in "${tarballs[@]}"; do tar -S -xJf "$tarball" -C "$images"; done
  python3 - "$corpus" "$images"/*/*.img <<'PY'
import struct, sys
corpus = sys.argv[1]
ORDINARY = bytes.fromhex('3bd66749292ed84a8399f6a339e3d001')
EOW = bytes.fromhex('3b4da89280dd0e4d9e4eb1e3284eaed8')
UNKNOWN = bytes(16)
SMALL_COPIES = (0x1000, 0x2000, 0x3000)

def changed(block, field, fmt, value):
    block = bytearray(block)
    struct.pack_into(fmt, block, field, value)
    return bytes(block)

def conversions(block, volume_size):
    yield 'state-unknown', changed(block, 12, '<H', 9)
    yield 'state-3', changed(block, 12, '<H', 3)
    yield 'next-state-unknown', changed(block, 14, '<H', 0)
    yield 'encrypted-beyond', changed(block, 16, '<Q', volume_size + 512)
    yield 'encrypted-part-sector', changed(block, 16, '<Q', volume_size - 100)
    yield 'decrypted-yet-encrypted', changed(block, 12, '<H', 1)
    yield 'encrypted-yet-none', changed(block, 16, '<Q', 0)
    yield 'part-way', changed(changed(block, 12, '<H', 2), 16, '<Q', volume_size // 2)

# A device within the fuzzer's longest input: the header with the given
# identifier and the block at three small offsets, each naming them.
def small_device(header, block, identifier):
    device = bytearray(0x3f00)
    device[:512] = header
    at = 176 if header[3:11] == b'-FVE-FS-' else 440
    device[at - 16:at] = identifier
    struct.pack_into('<3Q', device, at, *SMALL_COPIES)
    struct.pack_into('<2Q', device, at + 24, 0x800, 0xc00)
    block = bytearray(block[:0xf00])
    struct.pack_into('<3Q', block, 32, *SMALL_COPIES)
    for offset in SMALL_COPIES:
        device[offset:offset + len(block)] = block
    return bytes(device)

def write(name, data):
    with open(corpus + '/seed-' + name, 'wb') as seed:
        seed.write(data)

for image in sys.argv[2:]:
    name = image.rsplit('/', 1)[1]
    with open(image, 'rb') as device:
        header = device.read(512)
        at = 176 if header[3:11] == b'-FVE-FS-' else 440
        device.seek(struct.unpack_from('<Q', header, at)[0])
        block = device.read(16383)
        device.seek(0, 2)
        volume_size = device.tell()
    write(name, b'\0' + block)
    for change, mutated in conversions(block, volume_size):
        write(name + '-' + change, b'\0' + mutated)
    for kind, identifier in (('ordinary', ORDINARY), ('eow', EOW), ('unknown', UNKNOWN)):
        write(name + '-device-' + kind, b'\1' + small_device(header, block, identifier))
PY
  rm -rf "$images"
}
seed_volume_corpus

# Each target with the longest input it takes: a block's payload, or a
# metadata block.
for run in FuzzPipeDataWrapper:512 FuzzDispatcher:512 FuzzBitlockerVolume:16384; do
  target=${run%:*}
  mkdir -p "build-fuzz/corpus/$target"
  unshare --mount --propagation private ./scripts/private-root.sh \
    "build-fuzz/tests/fuzz/$target" -max_total_time="$seconds" -max_len="${run#*:}" \
    -artifact_prefix=build-fuzz/crashes/ "build-fuzz/corpus/$target" 2>&1 | tail -3
done
