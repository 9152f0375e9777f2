#!/usr/bin/env bash
# Builds everything and shows the service at work: it starts the service
# from its bundle as root, talks to it with zqctl as a client application
# does, prints the answers, and stops it.  It all happens in private mount
# and process namespaces under a private root, so a service already running
# on this machine is left alone and nothing is written outside the build.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/build.sh
keep=()
if [ -d ../shared ]; then keep=(--keep ../shared); fi
exec unshare --mount --pid --fork --mount-proc --propagation private ./scripts/private-root.sh "${keep[@]}" ./scripts/demo.sh
