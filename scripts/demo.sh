#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs what is missing, builds, verifies the sample packages, and has a simulated kernel label the
# compiled files of one.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release --target quillon_cli tarnsim

Show() {  # Show TEXT ARGUMENT...: explains and runs one command of the tool
  printf '\n%s\n$ quillon %s\n' "$1" "${*:2}"
  "$tool" "${@:2}" 2>&1 || echo "(exit status $?)"
}

tool=$PWD/build/release/bin/quillon
# In the build folder, for labels need a file system with extended attributes.
work=$(mktemp -d "$PWD/build/demo-XXXXXX")
trap 'rm -rf "$work"' EXIT

Show "The verdict on each sample package, with the scheme that its signature was verified under:" \
  verify samples/*.apk
Show "The same for a package whose signing key was rotated twice, with the library's log lines:" \
  verify -v samples/v3-rotated.apk

cp samples/v3.apk "$work/base.apk"
echo "compiled code" >"$work/base.odex"
echo "verified bytecode" >"$work/base.vdex"
cd "$work"
Show "The kernel labels a package's compiled files with their digest and that of the signer's key:" \
  provision --simulate base.apk base.odex base.vdex
Show "It can tell the file from then on:" label --simulate base.odex
printf C | dd of=base.odex bs=1 count=1 conv=notrunc status=none
Show "But not after one byte of it has changed:" label --simulate base.odex
