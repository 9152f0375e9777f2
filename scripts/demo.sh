#!/usr/bin/env bash
# The walk-through that run.sh starts inside its private namespaces and
# private root.
set -euo pipefail
cd "$(dirname "$0")/.."

bundle="build/bundle/Zq Norvane.app"
zqctl=build/bundle/zqctl
step() { printf '\n\033[1m$ %s\033[0m\n' "$*"; }

mount_point="/media/BitLocker Volume"

cleanup() {
  umount "$mount_point" 2>/dev/null || true
  [ -n "${loop:-}" ] && losetup -d "$loop" 2>/dev/null || true
  [ -n "${bitlocker_loop:-}" ] && losetup -d "$bitlocker_loop" 2>/dev/null || true
  [ -n "${service_pid:-}" ] && kill "$service_pid" 2>/dev/null || true
}
trap cleanup EXIT

step "\"$bundle/Contents/MacOS/Zq-NorvaneServices\" &"
"$bundle/Contents/MacOS/Zq-NorvaneServices" &
service_pid=$!

step "zqctl ping"
"$zqctl" ping

image=$(mktemp /tmp/plain-XXXXXX.img)
truncate -s 16M "$image"
loop=$(losetup -f --show "$image")
step "zqctl check ${loop#/dev/}    # a plain disk"
"$zqctl" check "${loop#/dev/}" || true

installed=$(realpath "$bundle")
step "zqctl --json startup on '$installed'"
"$zqctl" --json startup on "$installed"
sleep 2
step "ls /Library/LaunchDaemons /Library/LaunchAgents"
ls /Library/LaunchDaemons /Library/LaunchAgents
step "zqctl startup off"
"$zqctl" startup off

# One key of one section of an INI file.
ini() { awk -F' *= *' -v section="[$2]" -v key="$3" '$0 == section { in_it = 1; next } /^\[/ { in_it = 0 } in_it && $1 == key { print $2 }' "$1"; }

images_tarball=../shared/bitlocker-images.tar.xz
if [ -f "$images_tarball" ]; then
  tar -S -xJf "$images_tarball" -C /tmp
  manifest=/tmp/bitlocker-images/manifest.ini
  name=$(awk '/^\[/ { print substr($0, 2, length($0) - 2); exit }' "$manifest")
  password=$(ini "$manifest" "$name" password)
  [ -n "$password" ] || password=$(ini "$manifest" "$name" recovery_password)
  bitlocker_loop=$(losetup -f --show -r "/tmp/bitlocker-images/$(ini "$manifest" "$name" file)")
  disk=${bitlocker_loop#/dev/}

  step "zqctl check $disk    # the image $name"
  "$zqctl" check "$disk"

  step "echo '$password' | zqctl mount $disk '$mount_point' raw"
  printf '%s\n' "$password" | "$zqctl" mount "$disk" "$mount_point" raw
  step "ls -l '$mount_point'"
  ls -l "$mount_point"
  step "sha256sum '$mount_point/volume'    # beside the manifest's digest"
  printf '%s  the mounted volume\n' "$(sha256sum <"$mount_point/volume" | cut -d' ' -f1)"
  printf '%s  decrypted_sha256 in the manifest\n' "$(ini "$manifest" "$name" decrypted_sha256)"

  step "zqctl unmount '$mount_point'"
  "$zqctl" unmount "$mount_point"

  step "echo '$password' | zqctl explore $disk    # the explorer prints below"
  printf '%s\n' "$password" | "$zqctl" explore "$disk"
  for _ in $(seq 30); do [ -p /tmp/zq_btl_4 ] && break; sleep 0.5; done
  sleep 3
  step "zqctl to-explorer x"
  "$zqctl" to-explorer x
  sleep 2
  step "zqctl to-explorer q    # ends the explorer"
  "$zqctl" to-explorer q
  sleep 2
else
  printf '\n(no %s: the BitLocker part of the walk-through is skipped)\n' "$images_tarball"
fi

step "zqctl exit"
"$zqctl" exit
wait "$service_pid" && echo "the service ended with status $?"
service_pid=
step "tail /tmp/zqlog.log"
tr -d '\r' </tmp/zqlog.log
