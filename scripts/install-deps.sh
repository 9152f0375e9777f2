#!/usr/bin/env bash
# Installs the Debian packages the build, the tests, the macOS compile check
# (clang and libc++) and the benchmarks need (run as root).  dislocker and
# libbde-utils are the benchmarks' reference readers and the read-write
# tests' independent readers of what the mounter wrote, cryptsetup-bin's
# bitlkDump the tests' independent reader of metadata; the product never
# links them.
# strace holds the mounter still in the tests of mount points changed under it.
# scdoc turns the man pages into roff, bash-completion tells where
# completions go, and systemd's systemd-analyze reads back the unit that
# starts the service at boot.
set -euo pipefail

packages=(
  build-essential cmake pkg-config git
  libgtest-dev libgmock-dev
  libssl-dev libfuse3-dev fuse3 libsystemd-dev
  python3 util-linux mount xz-utils openssl
  dosfstools mtools ntfs-3g exfat-fuse exfatprogs fusefat e2fsprogs
  clang libclang-rt-14-dev libc++-14-dev
  dislocker libbde-utils cryptsetup-bin fdisk
  scdoc bash-completion systemd strace
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq "${missing[@]}"
fi
