#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Compares the tool with other programs that read a whole file, and prints Markdown tables of medians.
# The programs run in turn, on files in the page cache. Those that are not installed are left out; Debian has them
# in the packages apksigner, fsverity and openssl. Needs the release build with its benchmarks (scripts/bench.sh
# makes it) and 2 GiB on its disk.
# usage: compare.sh [RUNS]    default: 7
set -euo pipefail
export LC_ALL=C  # numbers with a point
cd "$(dirname "$0")/.."

runs=${1:-7}
build=build/release
work=$(mktemp -d "$build/compare-XXXXXX")
trap 'rm -rf "$work"' EXIT
quillon=$build/bin/quillon
apksigner=(apksigner verify --min-sdk-version 28)

Measure() { "$build/benchmarks/measure" "$@"; }
Median() { sort -g "$1" | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
Ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3g", a / b }'; }
Milliseconds() { awk -v s="$1" 'BEGIN { printf "%.4g", s * 1000 }'; }

# Alternate NAME=COMMAND_LINE...: runs the commands in turn; their times go to $work/NAME.times
Alternate() {
  local run program
  rm -f "$work"/*.times
  for ((run = 0; run <= runs; ++run)); do
    for program in "$@"; do
      # shellcheck disable=SC2086  # a command line is split into words
      Measure time ${program#*=} >>"$work/${program%%=*}.times"
    done
    [ "$run" -ne 0 ] || rm "$work"/*.times  # the first run warms up
  done
}

# Peak COMMAND_LINE: prints the peak of private memory in KiB, the highest of several runs, because a short run
# can end between two samples.
Peak() {
  local run
  # shellcheck disable=SC2086
  for ((run = 0; run < runs; ++run)); do Measure memory $1; done | sort -g | tail -1
}

CompareOn() {  # CompareOn TITLE FILE [NAME=COMMAND_LINE...]: compares all programs, and those given, on one file
  local programs=("quillon=$quillon verify $2" "${@:3}")
  local line name median memory own ownMemory
  for line in "apksigner=${apksigner[*]}" "fsverity=fsverity digest" "openssl=openssl dgst -sha256" \
    "sha256sum=sha256sum"; do
    name=${line%%=*}
    if command -v "$name" >/dev/null; then
      programs+=("$line $2")
    else
      absent+=" $name"
    fi
  done
  Alternate "${programs[@]}"
  own=$(Median "$work/quillon.times")
  printf '\n| %s | ms | quillon takes | private KiB | quillon takes |\n|---|---|---|---|---|\n' "$1"
  for line in "${programs[@]}"; do
    name=${line%%=*}
    median=$(Median "$work/$name.times")
    memory=$(Peak "${line#*=}")
    [ "$name" != quillon ] || ownMemory=$memory
    echo "| \`$name\` | $(Milliseconds "$median") | $(Ratio "$own" "$median") | $memory |" \
      "$(Ratio "$ownMemory" "$memory") |"
  done
}

Package() { "$build/benchmarks/make_big_package" "$1" "$2"; }

absent=
Package 512 "$work/512.apk"
CompareOn "v3 package of 512 MiB, RSA, SHA-256" "$work/512.apk"
rm "$work/512.apk"
absent=
CompareOn "\`samples/v3.apk\`, v3, EC P-256" samples/v3.apk "nothing=$build/benchmarks/nothing"
[ -z "$absent" ] || printf '\nNot installed, so left out:%s.\n' "$absent"

mkdir "$work/batch"
Package 1 "$work/batch/1.apk"
for ((i = 2; i <= 200; ++i)); do cp "$work/batch/1.apk" "$work/batch/$i.apk"; done
Alternate "one=$quillon verify -j 1 $(echo "$work"/batch/*.apk)" \
  "two=$quillon verify -j 2 $(echo "$work"/batch/*.apk)"
one=$(Median "$work/one.times")
two=$(Median "$work/two.times")
printf '\n| 200 v3 packages of 1 MiB | ms | times as fast |\n|---|---|---|\n'
echo "| \`-j 1\` | $(Milliseconds "$one") | 1 |"
echo "| \`-j 2\` | $(Milliseconds "$two") | $(Ratio "$one" "$two") |"

Package 1024 "$work/1024.apk"
small=$(Peak "$quillon verify $work/batch/1.apk")
large=$(Peak "$quillon verify $work/1024.apk")
printf '\n| private memory at the peak | KiB |\n|---|---|\n'
echo "| package of 1 MiB | $small |"
echo "| package of 1 GiB | $large |"
echo "| growth | $((large - small)) |"
