#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Compares the binary interface of a libquillon.so that was built with -g with the agreed one, tests/abi/libquillon.abi:
# functions with their parameters, classes with their virtual functions, members and sizes. Needs abigail-tools.
# usage: abi.sh [--accept] LIBRARY
#   --accept   makes the library's interface the agreed one
set -euo pipefail
cd "$(dirname "$0")/.."
accept=
[ "${1:-}" != --accept ] || { accept=yes; shift; }
agreed=tests/abi/libquillon.abi
suppressions=(--suppressions tests/abi/suppressions.ini)
[ "$(uname -m)" = x86_64 ] || { echo "abi: skipped, the agreed interface is that of x86-64" >&2; exit 0; }
# Without debugging information, names would be all that is compared.
readelf -S "$1" | grep '[.]debug_info' >/dev/null || { echo "abi: $1 was built without -g" >&2; exit 2; }

if [ -n "$accept" ]; then
  abidw "${suppressions[@]}" --headers-dir include/quillon --drop-private-types --exported-interfaces-only \
    --drop-undefined-syms --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --type-id-style hash "$1" |
    sed '1a<!-- SPDX-License-Identifier: Apache-2.0 -->' >"$agreed"
else
  abidiff "${suppressions[@]}" "$agreed" "$1" || {
    echo "abi: see \"Change the library's interface\" in CONTRIBUTING.md" >&2
    exit 1
  }
fi
