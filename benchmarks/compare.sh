#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Compares the tool with other programs that read a whole file, and with the library in one process. Prints Markdown
# tables of medians. The programs run in turn. Those that are not installed are left out; Debian has them in the
# packages apksigner, fsverity and openssl. Needs the release build with its benchmarks (scripts/bench.sh makes it) and
# 1 GiB on its disk.
# usage: compare.sh [--quick]
set -euo pipefail
export LC_ALL=C  # numbers with a point
cd "$(dirname "$0")/.."

runs=7 coldRuns=3 batchRuns=3 big=512 copies=5000 packages=200
[ "${1-}" != --quick ] || runs=3 coldRuns=1 batchRuns=1 big=16 copies=100 packages=20
build=build/release
bin=$build/benchmarks
quillon=$build/bin/quillon
work=$(mktemp -d "$build/compare-XXXXXX")
trap 'rm -rf "$work"' EXIT

programs=()  # NAME=COMMAND_LINE
absent=

Programs() {  # Programs FILE: sets `programs` to those that read a file
  local line name
  programs=("quillon verify=$quillon verify $1")
  absent=
  for line in "apksigner verify=apksigner verify --min-sdk-version 28" "fsverity digest=fsverity digest" \
    "openssl dgst=openssl dgst -sha256"; do
    name=${line%% *}
    if command -v "$name" >/dev/null; then programs+=("$line $1"); else absent+=" $name"; fi
  done
}

# Compare TITLE MEASURE_OPTION...: prints a row for each of `programs`, and how the first one compares
Compare() {
  local program commands=()
  # shellcheck disable=SC2206  # a command line is split into words
  for program in "${programs[@]}"; do commands+=(${program#*=} +); done
  printf '\n| %s | ms | quillon takes | processor ms | quillon takes | peak MiB |\n|---|---|---|---|---|---|\n' "$1"
  "$bin/measure" "${@:2}" "${commands[@]:0:${#commands[@]}-1}" |
    awk -v names="$(printf '%s\n' "${programs[@]%%=*}")" '
      BEGIN { split(names, name, "\n") }
      NR == 1 { elapsed = $1; processor = $2 }
      { printf "| %s | %.4g | %.3g | %.4g | %.3g | %.1f |\n",
          name[NR], $1 * 1000, elapsed / $1, $2 * 1000, processor / $2, $3 / 1024 }'
}

# Batch TITLE FILE...: many small files
Batch() {
  printf '\n| %s | ms a file | processor ms a file | times as fast | peak MiB |\n|---|---|---|---|---|\n' "$1"
  "$bin/measure" "$batchRuns" "$quillon" verify -j 1 "${@:2}" + "$quillon" verify -j 2 "${@:2}" \
    + "$bin/in_process" "${@:2}" |
    awk -v files=$(($# - 1)) '
      BEGIN { split("quillon verify -j 1\nquillon verify -j 2\nthe library in one process", name, "\n") }
      { elapsed[NR] = $1 * 1000 / files; processor[NR] = $2 * 1000 / files }
      { printf "| %s | %.3f | %.3f | %.2f | %.1f |\n",
          name[NR], elapsed[NR], processor[NR], elapsed[1] / elapsed[NR], $3 / 1024 }
      END { printf "| above the library, a file | %.3f | %.3f | | |\n",
          elapsed[1] - elapsed[3], processor[1] - processor[3] }'
}

file=$work/big.apk
"$bin/make_big_package" "$big" "$file"
Programs "$file"
Compare "v3 package of $big MiB, RSA, in the page cache" "$runs"
Compare "the same, not in the page cache" --cold "$file" "$coldRuns" || echo "| not measured |"
rm "$file"

file=samples/v3.apk
Programs "$file"
programs+=("the tool's libraries alone=$bin/nothing")
Compare "\`$file\`, v3, EC P-256" $((3 * runs))
[ -z "$absent" ] || printf '\nNot installed, so left out:%s.\n' "$absent"

Copies() {  # Copies FILE NUMBER: prints their names
  local i
  rm -f "$work"/*.apk
  for ((i = 1; i <= $2; ++i)); do cp "$1" "$work/$i.apk"; done
  echo "$work"/*.apk
}
# shellcheck disable=SC2046  # names without spaces
Batch "$copies copies of \`$file\`" $(Copies "$file" "$copies")
"$bin/make_big_package" 1 "$work/1"
# shellcheck disable=SC2046
Batch "$packages v3 packages of 1 MiB" $(Copies "$work/1" "$packages")
