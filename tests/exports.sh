#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Compares the names that the library exports with the agreed list in exports.txt. Each name must have the version
# that quillon.map defines.
# usage: exports.sh LIBRARY    uses the program in $NM, or nm
set -euo pipefail
version=LIBQUILLON_1
"${NM:-nm}" -D --defined-only "$1" | sed -n "/ A $version\(@@$version\)\?$/! s/^[0-9a-f]* . //p" | c++filt |
  LC_ALL=C sort -u |
  diff -u --label agreed --label exported \
    <(sed "/^#/d; s/$/@@$version/" "$(dirname "$0")/exports.txt" | LC_ALL=C sort) -
