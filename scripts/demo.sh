#!/usr/bin/env bash
# The walk-through that run.sh starts inside its private namespaces.
set -euo pipefail
cd "$(dirname "$0")/.."

mount -t tmpfs tmpfs /tmp
mkdir -p /Library && mount -t tmpfs tmpfs /Library

bundle="build/bundle/Zq Norvane.app"
zqctl=build/bundle/zqctl
step() { printf '\n\033[1m$ %s\033[0m\n' "$*"; }

cleanup() {
  [ -n "${loop:-}" ] && losetup -d "$loop" 2>/dev/null || true
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

step "zqctl exit"
"$zqctl" exit
wait "$service_pid" && echo "the service ended with status $?"
service_pid=
step "tail /tmp/zqlog.log"
tr -d '\r' </tmp/zqlog.log
