#!/usr/bin/env bash
# private-root.sh [--keep DIR]... COMMAND [ARG]...
# Runs a command, from the current folder, under a root of its own: the
# machine's folders bound in as they are, except every folder the service,
# the mounter and their startup items write to, which is an empty tmpfs
# (/tmp, /media, /mnt, /run, /Library, /var/log, /etc/systemd/system,
# /dev/shm).  Nothing the command writes there reaches the machine, and no
# folder is made on the machine for it: /Library exists only in the private
# root.  The current folder and every DIR given stay as they are even when
# they lie in one of those folders (a clone under /tmp, say).  Run it in a
# private mount namespace (unshare --mount).
set -euo pipefail

here=$PWD
keep=("$here")
while [ "${1-}" = --keep ]; do
  keep+=("$(cd "$2" && pwd -P)")
  shift 2
done

mount --make-rprivate /
# The new root is put together on /run, which it replaces anyway, so that
# the folders kept from /tmp, /media and /mnt stay in sight meanwhile.
mount -t tmpfs -o mode=0700 tmpfs /run
root=/run/root
mkdir "$root"
# A mount of its own, so that it can become the root rather than a chroot
# inside one: the mount table then shows every folder's mount, / included.
mount --bind "$root" "$root"

for entry in /* /.[!.]*; do
  name=${entry#/}
  if [ -L "$entry" ]; then
    ln -s "$(readlink "$entry")" "$root/$name"
  elif [ -d "$entry" ]; then
    mkdir "$root/$name"
    case $name in
      tmp | media | mnt | run) ;;
      *) mount --rbind "$entry" "$root/$name" ;;
    esac
  fi
done

[ -d "$root/Library" ] || mkdir "$root/Library"
mount -t tmpfs -o mode=1777 tmpfs "$root/tmp"
mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
for folder in media mnt run Library var/log etc/systemd/system; do
  # A folder the machine lacks stays absent rather than be made on it.
  if [ -d "$root/$folder" ]; then mount -t tmpfs -o mode=0755 tmpfs "$root/$folder"; fi
done

for folder in "${keep[@]}"; do
  case $folder in
    /tmp/* | /media/* | /mnt/*)
      mkdir -p "$root$folder"
      mount --rbind "$folder" "$root$folder"
      ;;
    /run/*) echo "private-root.sh: $folder cannot be kept: /run holds the new root" >&2; exit 1 ;;
  esac
done

cd "$root"
pivot_root . .
umount -l .
exec /bin/sh -c 'cd "$1" && shift && exec "$@"' sh "$here" "$@"
