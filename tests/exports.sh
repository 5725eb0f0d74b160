#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Compares the names that the library exports with the agreed list, exports.txt beside this script. Each
# must carry the version that quillon.map gives them.
# usage: exports.sh LIBRARY    the program in $NM, or nm, reads it
set -euo pipefail
version=LIBQUILLON_1
"${NM:-nm}" -D --defined-only "$1" | sed -n "/ A $version\(@@$version\)\?$/! s/^[0-9a-f]* . //p" | c++filt |
  LC_ALL=C sort -u |
  diff -u --label agreed --label exported \
    <(sed "/^#/d; s/$/@@$version/" "$(dirname "$0")/exports.txt" | LC_ALL=C sort) -
