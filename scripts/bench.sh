#!/usr/bin/env bash
# Builds and runs the benchmarks on every BitLocker image in
# ../shared/bitlocker-images.tar.xz: the engine's read speed beside the
# machine's AES limit and the distribution's reference readers, then the
# mounter's FUSE file beside the reference readers' FUSE files, read and
# then written (a sparse copy of each image, made and removed by the
# benchmark).
set -euo pipefail
cd "$(dirname "$0")/.."

images_tarball=../shared/bitlocker-images.tar.xz
if [ ! -f "$images_tarball" ]; then
  echo "bench: no $images_tarball, nothing to measure" >&2
  exit 0
fi

./scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$(nproc)" --target zq-bitlocker-bench zq-mounter-bench

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
tar -S -xJf "$images_tarball" -C "$work"
dir="$work/bitlocker-images"

# Prints "name file recovery_password" for each image: every image has a
# recovery password, and it unlocks through every reader.
images() {
  awk -F' *= *' '
    /^\[/ { if (name) print name, file, recovery; name = substr($0, 2, length($0) - 2); file = recovery = "" }
    $1 == "file" { file = $2 }
    $1 == "recovery_password" { recovery = $2 }
    END { if (name) print name, file, recovery }' "$dir/manifest.ini"
}

images | while read -r name file recovery; do
  printf '\n== %s\n' "$name"
  printf '%s\n' "$recovery" | build/bench/zq-bitlocker-bench "$dir/$file"
  printf '%s\n' "$recovery" | build/bench/zq-mounter-bench "$dir/$file"
done
