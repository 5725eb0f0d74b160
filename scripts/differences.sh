#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Compares the verdicts of apksigner verify and of the tool, both at SDK level 30, and prints a table of the packages
# on which they differ. Needs the optimized build, apksigner with its library, a JDK, and jq. Takes less than a minute.
# usage: differences.sh [--update | --check] [FOLDER]
#        differences.sh --random [COUNT [SEED]]
#   FOLDER     holds the packages; default: the folder that QUILLON_PACKAGES names, here or when the build was
#              configured, else samples/
#   --update   writes the table into docs/differences.md
#   --check    shows what --update would change; does nothing if no folder is named
#   --random   judges COUNT packages that a fuzzer's mutator makes, 5000 by default, from SEED, 1 by default. Fails if
#              the two differ in a way that is not in the last table of docs/differences.md
set -euo pipefail
cd "$(dirname "$0")/.."
document=docs/differences.md
mode=
case ${1:-} in
  --update | --check | --random) mode=$1; shift ;;
  -*) sed -n '4,13s/^# //p' "$0" >&2; exit 2 ;;
esac
tool=build/release/bin/quillon
type "$tool" apksigner java jq >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ "$mode" = --random ]; then
  folder=build/random_packages  # stays, so that one can look at what is not explained
  rm -rf "$folder"
  mkdir "$folder"
  build/release/fuzz/random_packages "$folder" "${1:-5000}" "${2:-1}"
else
  folder=${1:-${QUILLON_PACKAGES:-$(sed -n 's/^QUILLON_PACKAGES:PATH=//p' build/release/CMakeCache.txt)}}
fi
if [ "$mode" = --check ] && [ -z "$folder" ]; then
  echo "differences: skipped, QUILLON_PACKAGES names no folder of packages" >&2
  exit 0
fi
packages=("${folder:-samples}"/*.apk)

printf '%s\n' "${packages[@]}" |
  java -XX:TieredStopAtLevel=1 -XX:+UseSerialGC -cp /usr/share/java/apksig.jar scripts/Judge.java \
    >"$work/theirs" 2>"$work/traces"  # apksigner's library also prints where it caught an exception
"$tool" verify --json --sdk 30 -- "${packages[@]}" >"$work/ours" || true
jq -s --rawfile theirs "$work/theirs" '
  ($theirs | split("\n")) as $theirs |
  to_entries | map({
    ours: (.value.reason.code // "verified, v\(.value.scheme)"),
    theirs: $theirs[.key],
    name: (.value.file | split("/")[-1] | rtrimstr(".apk"))})
' "$work/ours" >"$work/verdicts"

# A row of the table has the verdicts that it explains between backquotes. For apksigner they are parts of its error,
# or there are none if it verifies. Fails also if few packages are good, because then the comparison says little.
if [ "$mode" = --random ]; then
  sed -n '/^<!-- kinds/,/^<!-- end of kinds/p' "$document" >"$work/kinds"
  jq -r --rawfile kinds "$work/kinds" '
    def quoted: [scan("`[^`]*`")[1:-1]];
    def explains($one): (.ours | index($one.ours)) and
      if $one.theirs == "" then .theirs == [] else any(.theirs[]; inside($one.theirs)) end;
    [$kinds | splits("\n") | select(startswith("| `")) | split(" | ") |
      {ours: (.[0] | quoted), theirs: (.[1] | quoted)}] as $kinds |
    map(select(.theirs == "" and (.ours | startswith("verified")))) as $agreed |
    map(select((.theirs == "") != (.ours | startswith("verified")))) as $differences |
    ($differences | map(select(. as $one | any($kinds[]; explains($one)) | not))) as $new |
    "\(length) random packages: both verify \($agreed | length), and judge \($differences | length) differently",
    ($new[] | "not explained: \(.name): \(.ours); apksigner: \(if .theirs == "" then "verifies" else .theirs end)"),
    if $new != [] or ($agreed | length) * 10 < length then "" | halt_error(1) else empty end
  ' "$work/verdicts"
  exit
fi

jq -r --arg version "$(apksigner version)" '
  def cell: @html | gsub("\\|"; "\\|");
  map(select((.theirs == "") != (.ours | startswith("verified")))) as $differences |
  "Of \(length) packages, `quillon verify` and apksigner \($version) judge \($differences | length) differently:",
  "", "| `quillon verify --sdk 30` | apksigner | number | packages |", "|---|---|---|---|",
  ($differences | group_by([.ours, .theirs])[] |
    "| `\(.[0].ours)` | \(.[0].theirs | if . == "" then "verifies" else cell end) " +
      "| \(length) | \(map(.name | cell) | join(", ")) |")
' "$work/verdicts" >"$work/table"

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
