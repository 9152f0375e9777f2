#!/usr/bin/env bash
# Compiles every translation unit of the macOS build, without linking, on
# Linux: CMake configures the project as for macOS (scripts/macos-sdk), and
# clang checks each file against the stand-in Apple headers, which also
# make Linux-only calls an error.  Fails on any error or warning.
set -euo pipefail
cd "$(dirname "$0")/.."

dir=${ZQ_MACOS_CHECK_DIR:-build-macos-check}
cmake -S . -B "$dir" -DCMAKE_TOOLCHAIN_FILE="$PWD/scripts/macos-sdk/toolchain.cmake" \
  -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null

python3 - "$dir/compile_commands.json" <<'PYTHON'
import concurrent.futures, json, os, shlex, subprocess, sys

def check(entry):
    words = shlex.split(entry["command"])
    at = words.index("-o")
    words[at:at + 2] = ["-fsyntax-only", "-Werror"]
    run = subprocess.run(words, cwd=entry["directory"], capture_output=True, text=True)
    return entry["file"], run.returncode, run.stderr

entries = json.load(open(sys.argv[1]))
failed = 0
with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
    for path, status, errors in pool.map(check, entries):
        if status != 0:
            failed += 1
            sys.stdout.write(errors)
print(f"macOS compile check: {len(entries) - failed} passed, {failed} failed")
sys.exit(1 if failed else 0)
PYTHON
