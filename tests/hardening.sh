#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Checks that libraries and programs were built hardened.
# usage: hardening.sh [FILE...] [--unfortified FILE...]    the program in $READELF, or readelf, reads them
#   --unfortified   these need not call the checking variants of functions of the C library
set -euo pipefail

Read() { "${READELF:-readelf}" --wide "$@"; }

failed=0
Expect() {  # Expect MEANING PATTERN TEXT
  grep -q -E "$2" <<<"$3" && return
  echo "$file: not so: $1" >&2
  failed=1
}

fortified=1
for file in "$@"; do
  if [ "$file" = --unfortified ]; then
    fortified=
    continue
  fi
  segments=$(Read --program-headers "$file")
  dynamic=$(Read --dynamic "$file")
  imports=$(Read --dyn-syms "$file")
  Expect "the load address is free" 'file type is DYN' "$segments"
  Expect "relocations are read-only" '^ *GNU_RELRO ' "$segments"
  Expect "and made before anything runs" 'BIND_NOW|\(FLAGS_1\).* NOW' "$dynamic"
  Expect "the stack is not executable" '^ *GNU_STACK .* RW +0x' "$segments"
  Expect "stack frames are guarded" ' UND __stack_chk_fail' "$imports"
  if [ "$fortified" ]; then
    Expect "copies are checked" ' UND __[a-z]+_chk(@|$)' "$imports"
  fi
done
exit $failed
