#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs missing packages, builds, verifies the sample packages, and labels the compiled files of one with a
# simulated kernel.
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
# In the build folder, whose file system can most likely keep labels in extended attributes.
work=$(mktemp -d "$PWD/build/demo-XXXXXX")
trap 'rm -rf "$work"' EXIT

Show "The verdict on each sample package, with its signature scheme:" \
  verify samples/*.apk
Show "The same for a package whose signing key was rotated twice, with the library's log lines:" \
  verify -v samples/v3-rotated.apk

cp samples/v3.apk "$work/base.apk"
echo "compiled code" >"$work/base.odex"
echo "verified bytecode" >"$work/base.vdex"
cd "$work"
Show "The kernel labels the compiled files of a package with their digest and the digest of the signer's key:" \
  provision --simulate base.apk base.odex base.vdex
Show "Now it can verify a file:" label --simulate base.odex
printf C | dd of=base.odex bs=1 count=1 conv=notrunc status=none
Show "But not after one byte of the file has changed:" label --simulate base.odex
