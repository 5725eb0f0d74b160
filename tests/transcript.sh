#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Runs the commands of transcripts, each in a new folder, and shows where they print something else.
# usage: transcript.sh [--accept] BUILD TRANSCRIPT...
#   BUILD      the build folder, such as build/release
#   --accept   write what the commands print into the transcripts
# Status: 0 when all match, 1 when one differs, 77 when this machine lacks what one needs.
#
# A transcript is a text file:
#   # needs: simulator         what the machine must have: simulator, xattr, memory-limit, native, jsonschema, jq, xmllint, git, python3
#   # Other comments, and blank lines, may be anywhere.
#   $ quillon verify none \    a command of bash; the shell's state is kept from one to the next
#   >   good.apk               its continuation, if it has one
#   good.apk: verified ...     what it writes to standard output, without blank lines
#   ! quillon: none: ...       what it writes to standard error
#   exit 3                     its status, if not 0
# In the output, the folder is called DIR, a SHA-256 digest KEY, a task N, a descriptor behind "OAT: " FD, and the size of a
# file in JSON N: signatures of EC keys have no fixed size.
# Commands may use quillon, make_package and tarn_client, the folders $BUILD and $SAMPLES, and $PRELOAD, an
# assignment for env that puts the simulator before a program.
set -u
export LC_ALL=C.UTF-8 ASAN_OPTIONS=verify_asan_link_order=0
# What the caller left open would change the numbers of descriptors in log lines.
exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-
accept=
[ "${1:-}" != --accept ] || { accept=yes; shift; }
BUILD=$(cd "${1:?usage: transcript.sh [--accept] BUILD TRANSCRIPT...}" && pwd) || exit 2
SAMPLES=$(cd "$(dirname "$0")/../samples" && pwd)
emulator=${QUILLON_EMULATOR:-}  # runs the programs of a build for another processor
PRELOAD=${emulator:+QEMU_SET_ENV=}LD_PRELOAD=$BUILD/libtarnsim.so
export BUILD SAMPLES PRELOAD
shift
work=$(mktemp -d)
export TARNSIM_LABELS=$work/labels  # where the simulator keeps labels that attributes cannot hold
trap 'rm -rf "$work"' EXIT

mkdir "$work/bin"
for program in bin/quillon tests/make_package tests/tarn_client; do
  name=$work/bin/${program##*/}
  [ -n "$emulator" ] || ln -s "$BUILD/$program" "$name"
  [ -z "$emulator" ] || printf '#!/bin/bash\nexec %s "$@"\n' "$emulator $BUILD/$program" >"$name"
done
[ -z "$emulator" ] || chmod +x "$work"/bin/*
PATH=$work/bin:$PATH

Has() {  # Has NEED
  case $1 in
    simulator) [ -z "$emulator" ] ;;  # an emulated program cannot run itself again
    xattr) touch "$work/file" && setfattr -n user.tarn.test "$work/file" 2>"$work/err" ;;
    jsonschema) python3 -c 'import jsonschema' 2>"$work/err" ;;
    native) [ -z "$emulator" ] ;;
    memory-limit) [ -z "$emulator" ] && (ulimit -v 400000 && quillon --version) >"$work/out" 2>&1 ;;
    *) command -v "$1" >/dev/null ;;
  esac
}

RunCommand() {  # runs $command, if there is one, and prints what a transcript says of it
  [ -n "$command" ] || return 0
  eval "$command" >"$work/out" 2>"$work/err" </dev/null
  local status=$?
  { cat "$work/out"; sed 's/^/! /' "$work/err"; } |
    sed -E "/^$/d; s,$work/folder,DIR,g; s,[0-9a-f]{64},KEY,g
            s,task [0-9]+,task N,g; s,(OAT|VDEX): [0-9]+,\1: FD,g
            s/\"size\":[0-9]+/\"size\":N/g"
  [ "$status" -eq 0 ] || echo "exit $status"
  command=
}

Replay() {  # Replay TRANSCRIPT: prints it with the output that its commands give here
  local lines line command=
  mapfile -t lines <"$1"
  rm -rf "$work/folder"
  mkdir "$work/folder"
  cd "$work/folder" || exit 2
  set +u
  for line in "${lines[@]}"; do
    case $line in
      '$ '* | '#'* | '') RunCommand ;;&
      '$ '*) command=${line#'$ '} ;;
      '> '*) command+=$'\n'${line#'> '} ;;
      '#'* | '') ;;
      *) continue ;;  # output
    esac
    echo "$line"
  done
  RunCommand
}

result=0
for transcript in "$@"; do
  needs=$(sed -n 's/^# needs: //p' "$transcript")
  for need in $needs; do
    Has "$need" || { echo "skipped, this machine lacks: $need"; [ $result -ne 0 ] || result=77; continue 2; }
  done
  (Replay "$transcript") >"$work/replay"
  if [ -n "$accept" ]; then
    cp "$work/replay" "$transcript"
  elif ! diff -u --text --label "$transcript" --label 'this run' "$transcript" "$work/replay"; then
    result=1
  fi
done
exit $result
