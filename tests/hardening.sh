#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Checks that libraries and programs are hardened.
# usage: hardening.sh [FILE...] [--unfortified FILE...]    uses the program in $READELF, or readelf
#   --unfortified   the files after it need not call the checking variants of C library functions
set -euo pipefail

Read() { "${READELF:-readelf}" --wide "$@"; }

failed=0
Expect() {  # Expect PROPERTY PATTERN TEXT: reports the file if no line of the text matches
  grep -q -E "$2" <<<"$3" && return
  echo "$file: not true: $1" >&2
  failed=1
}

fortified=1
for file in "$@"; do
  [ "$file" != --unfortified ] || { fortified=; continue; }
  segments=$(Read --program-headers "$file")
  dynamic=$(Read --dynamic "$file")
  imports=$(Read --dyn-syms "$file")
  Expect "the load address is random" 'file type is DYN' "$segments"
  Expect "relocations are read-only" '^ *GNU_RELRO ' "$segments"
  Expect "symbols are bound before anything runs" 'BIND_NOW|\(FLAGS_1\).* NOW' "$dynamic"
  Expect "the stack is not executable" '^ *GNU_STACK .* RW +0x' "$segments"
  Expect "stack frames have a guard value" ' UND __stack_chk_fail' "$imports"
  [ -z "$fortified" ] || Expect "copies are bounds-checked" ' UND __[a-z]+_chk(@|$)' "$imports"
done
exit $failed
