#!/bin/bash
# Checks that a shared library was built hardened.
# usage: hardening.sh LIBRARY [fortified]    the program in $READELF, or readelf, reads it
#   fortified   it must call the checking variants of functions of the C library, too
set -euo pipefail

Read() { "${READELF:-readelf}" --wide "$@"; }

failed=0
Expect() {  # Expect MEANING PATTERN TEXT
  grep -q -E "$2" <<<"$3" && return
  echo "not so: $1" >&2
  failed=1
}

segments=$(Read --program-headers "$1")
dynamic=$(Read --dynamic "$1")
imports=$(Read --dyn-syms "$1")
Expect "relocations are read-only" '^ *GNU_RELRO ' "$segments"
Expect "and made before anything runs" 'BIND_NOW|\(FLAGS_1\).* NOW' "$dynamic"
Expect "the stack is not executable" '^ *GNU_STACK .* RW +0x' "$segments"
Expect "stack frames are guarded" ' UND __stack_chk_fail' "$imports"
if [ "${2:-}" = fortified ]; then
  Expect "copies are checked" ' UND __[a-z]+_chk(@|$)' "$imports"
fi
exit $failed
