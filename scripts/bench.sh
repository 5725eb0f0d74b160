#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs missing packages, builds, and runs all benchmarks. Prints their tables and saves them as
# build/release/performance.md. Takes ten minutes; the machine should have nothing else to do.
# usage: bench.sh [--quick]
#   --quick   one minute: small packages, few runs; shows that all works. Saves performance-quick.md instead
set -euo pipefail
cd "$(dirname "$0")/.."
export LC_ALL=C  # numbers with a point

quick=() brief=() saved=build/release/performance.md
case $* in
  "") ;;
  --quick)
    quick=(--quick)
    brief=(--benchmark_min_time=0.001 --benchmark_filter='-MiB:512|FromDisk')
    saved=build/release/performance-quick.md ;;
  *) sed -n '4,7s/^# //p' "$0" >&2; exit 2 ;;
esac

Log() { echo "bench: $*" >&2; }

Log "installing and building"
scripts/install-deps.sh
cmake --preset release -D QUILLON_BUILD_BENCHMARKS=ON >/dev/null
cmake --build --preset release

export TMPDIR=$PWD/build/release  # on a disk; /tmp may be in memory
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

Log "timing the library"
build/release/benchmarks/quillon_benchmarks "${brief[@]}" \
  --benchmark_out="$work/benchmarks.json" --benchmark_out_format=json >&2
! grep -q '"error_occurred": true' "$work/benchmarks.json" || exit 1

# Prints one table row for each benchmark. The JSON report has one field on each line.
Rows() {
  awk -F'": ' '
    function Rate(name) { return name in field ? sprintf("%.0f MiB/s", field[name] / 1048576) : "" }
    function Share(name) { return name in field ? sprintf("%.3f", field[name]) : "" }
    function Each() {
      if ("per_section" in field) return sprintf("%.0f ns each", field["per_section"] * 1e9)
      return "per_entry" in field ? sprintf("%.0f ns each", field["per_entry"] * 1e9) : Rate("bytes/s")
    }
    /"benchmarks": \[/ { inside = 1 }
    !inside { next }
    NF == 2 { gsub(/[ "]/, "", $1); gsub(/[",]/, "", $2); field[$1] = $2 }
    /^ *}/ && "name" in field {
      gsub(/\/(manual_time|real_time|iterations:[0-9]+)/, "", field["name"])
      printf "| `%s` | %.4g %s | %s | %s | %s | %s |\n", field["name"], field["real_time"], field["time_unit"],
        Each(), Rate("limit"), Share("of_limit"), Share("of_limit_cpu")
      delete field
    }' "$work/benchmarks.json"
}

Log "comparing whole programs, and letting packages grow"
{
  processor=$(sed -n 's/^model name\t: //p' /proc/cpuinfo | sort -u)
  echo "$(nproc) processors, ${processor:-$(uname -m)}, Linux $(uname -r | cut -d- -f1)." \
    "Load of the machine so far: $(cut -d' ' -f1 /proc/loadavg)."
  benchmarks/compare.sh "${quick[@]}"
  benchmarks/growth.sh "${quick[@]}"
  printf '\n| benchmark | time | rate | limit | of the limit | in processor time |\n|---|---|---|---|---|---|\n'
  Rows
} | tee "$saved"
Log "saved $saved"
