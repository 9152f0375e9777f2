#!/bin/sh
# A recording stand-in for an external program (diskutil, the mounter, the
# explorer).  Each call appends its program name, its argument count and its
# arguments, NUL-separated, to "$ZQ_STUB_DIR/calls", and what it reads on
# standard input to "$ZQ_STUB_DIR/<program>.input".  What it prints and how
# it exits come from files in $ZQ_STUB_DIR named after the program and its
# first argument ("diskutil-unmount.stdout") or the program alone
# ("zq-mounter.exit").  A line in "<program>.activity" is appended to the
# activity log ($ZQ_ACTIVITY_LOG) before the answer, as the mounter does.
name=$(basename "$0")
dir=${ZQ_STUB_DIR:?}
printf '%s\0%s\0' "$name" "$#" >>"$dir/calls"
for arg in "$@"; do printf '%s\0' "$arg" >>"$dir/calls"; done
[ -t 0 ] || cat >"$dir/$name.input"

answer() {
  for key in "$name-$1" "$name"; do
    if [ -f "$dir/$key.$2" ]; then cat "$dir/$key.$2"; return 0; fi
  done
  return 1
}
# A rendezvous file holding N makes each call wait until N calls have
# arrived (at most 20 seconds); the status then tells whether they met.
if count=$(answer "$1" rendezvous); then
  : >"$dir/arrived.$$"
  waited=0
  while [ "$(ls "$dir" | grep -c '^arrived\.')" -lt "$count" ]; do
    [ "$waited" -ge 200 ] && exit 3
    sleep 0.1
    waited=$((waited + 1))
  done
fi
if delay=$(answer "$1" delay); then sleep "$delay"; fi
if line=$(answer "$1" activity); then printf '%s\r\n' "$line" >>"${ZQ_ACTIVITY_LOG:?}"; fi
answer "$1" stdout
answer "$1" stderr >&2
status=$(answer "$1" exit) || status=0
exit "$status"
