#!/bin/bash
# Compares the names that the library exports with the agreed list, exports.txt beside this script.
# usage: exports.sh LIBRARY    the program in $NM, or nm, reads it
set -euo pipefail
"${NM:-nm}" -D --defined-only "$1" | sed 's/^[0-9a-f]* . //' | c++filt | LC_ALL=C sort -u |
  diff -u --label agreed --label exported "$(dirname "$0")/exports.txt" -
