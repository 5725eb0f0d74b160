#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Compares the verdicts of apksigner verify and of the tool, both at SDK level 30, and prints a table of the packages
# on which they differ. Needs the tool of the optimized build, apksigner with its Java, and jq. Takes a minute.
# usage: differences.sh [--update | --check] [FOLDER]
#   FOLDER     holds the packages; default: the folder that QUILLON_PACKAGES names, here or when the build was
#              configured, else samples/
#   --update   writes the table into docs/differences.md
#   --check    shows what --update would change; does nothing if no folder is named
set -euo pipefail
cd "$(dirname "$0")/.."
mode=
case ${1:-} in
  --update | --check) mode=$1; shift ;;
  -*) sed -n '4,10s/^# //p' "$0" >&2; exit 2 ;;
esac
tool=build/release/bin/quillon
type "$tool" apksigner java jq >/dev/null
folder=${1:-${QUILLON_PACKAGES:-$(sed -n 's/^QUILLON_PACKAGES:PATH=//p' build/release/CMakeCache.txt)}}
if [ "$mode" = --check ] && [ -z "$folder" ]; then
  echo "differences: skipped, QUILLON_PACKAGES names no folder of packages" >&2
  exit 0
fi
packages=("${folder:-samples}"/*.apk)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

Apksigner() {  # Apksigner PACKAGE: prints a line, its first error, which is blank if it verifies the package
  local output
  # These options start it in half of the time.
  output=$(apksigner -JXX:TieredStopAtLevel=1 -JXX:+UseSerialGC verify \
    --min-sdk-version 30 --max-sdk-version 30 --in "$1" 2>&1) && echo && return
  sed -nE '/^(ERROR|Exception)/{s/^ERROR: |^Exception in thread "main" [a-z.]*//; s/\. Expected: .*//; p; q}' \
    <<<"$output" |
    grep . || echo "fails without a reason"
}

for i in "${!packages[@]}"; do
  [ "$i" -lt "$(nproc)" ] || wait -n
  Apksigner "${packages[i]}" >"$work/$i" &
done
wait
for i in "${!packages[@]}"; do cat "$work/$i"; done >"$work/theirs"
"$tool" verify --json --sdk 30 -- "${packages[@]}" >"$work/ours" || true

jq -rs --rawfile theirs "$work/theirs" --arg version "$(apksigner version)" '
  def cell: @html | gsub("\\|"; "\\|");
  ($theirs | split("\n")) as $theirs |
  [to_entries[] | {
    ours: (.value.reason.code // "verified, v\(.value.scheme)"),
    theirs: $theirs[.key],
    name: (.value.file | split("/")[-1] | rtrimstr(".apk"))}] |
  map(select((.theirs == "") != (.ours | startswith("verified")))) as $differences |
  "Of \(length) packages, `quillon verify` and apksigner \($version) judge \($differences | length) differently:",
  "", "| `quillon verify --sdk 30` | apksigner | number | packages |", "|---|---|---|---|",
  ($differences | group_by([.ours, .theirs])[] |
    "| `\(.[0].ours)` | \(.[0].theirs | if . == "" then "verifies" else cell end) " +
      "| \(length) | \(map(.name | cell) | join(", ")) |")
' "$work/ours" >"$work/table"

document=docs/differences.md
{
  sed '/^<!-- table/q' "$document"
  cat "$work/table"
  sed -n '/^<!-- end of table/,$p' "$document"
} >"$work/updated"
case $mode in
  --update) cp "$work/updated" "$document" ;;
  --check) diff -u "$document" "$work/updated" ;;
  *) cat "$work/table" ;;
esac
