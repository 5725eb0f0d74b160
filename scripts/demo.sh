#!/bin/bash
# Installs what is missing, builds the tool, and verifies the sample packages with it.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target quillon_cli

Show() {  # Show TEXT ARGUMENT...: explains and runs one command of the tool
  printf '\n%s\n$ quillon %s\n' "$1" "${*:2}"
  build/release/bin/quillon "${@:2}" || echo "(exit status $?)"
}

Show "The verdict on each sample package, with the scheme that its signature was verified under:" \
  verify samples/*.apk
Show "The same for a package whose signing key was rotated twice, with the library's log lines:" \
  verify -v samples/v3-rotated.apk
