#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Shows how the time and the memory of the tool grow with what a package has, and with the number of packages. Prints
# Markdown tables of medians. Needs the release build with its benchmarks (scripts/bench.sh makes it).
# usage: growth.sh [--quick]
set -euo pipefail
export LC_ALL=C  # numbers with a point
build=$(cd "$(dirname "$0")/.." && pwd)/build/release
quick=${1-}
work=$(mktemp -d "$build/growth-XXXXXX")
trap 'rm -rf "$work"' EXIT
cd "$work"  # so that 100,000 names of files fit into the arguments of a program

# Grow TITLE RUNS MAKE COUNT...: prints a row for each count. MAKE COUNT makes a package, and may set `arguments`.
# "Each more" compares a row with the one above it.
Grow() {
  local count cost
  printf '\n| %s | ms | processor ms | each more, processor µs | peak MiB |\n|---|---|---|---|---|\n' "$1"
  for count in "${@:4}"; do
    [ "$quick" != --quick ] || [ "$count" -le 1000 ] || continue
    arguments=(p)
    rm -f p
    "$3" "$count"
    cost=$("$build/benchmarks/measure" "$2" "$build/bin/quillon" verify "${arguments[@]}")
    echo "$count $cost"
  done | awk '
    { each = NR == 1 ? "" : sprintf("%.3g", ($3 - processor) * 1e6 / ($1 - count)) }
    { printf "| %d | %.4g | %.4g | %s | %.1f |\n", $1, $2 * 1000, $3 * 1000, each, $4 / 1024 }
    { count = $1; processor = $3 }'
}

Hole() { "$build/benchmarks/make_big_package" "$1" p hole; }
Package() { "$build/tests/make_package" p manifest=org.quillon.growth "$@"; }
Entries() { Package "entries=$1" v3; }
Sections() { Package "entries=$1" jar; }
Levels() { Package "v3=$1"; }
Signers() { Package "v2=$1"; }
Files() {
  Hole 0
  mapfile -t arguments < <(yes p | head -n "$1")
  arguments+=(-j 2)
}

Grow "MiB, v3, a hole" 3 Hole 1 16 64 256 1024 4095
Grow "entries, v3" 3 Entries 100 1000 10000 60000
Grow "entries, each in the JAR manifest" 3 Sections 100 1000 10000 60000
Grow "levels of a lineage, EC P-256" 3 Levels 10 100 1000 10000
Grow "v2 signers, EC P-256" 3 Signers 10 100 1000 10000
Grow "files, v3, RSA, with -j 2" 1 Files 1 10 100 1000 10000 100000
