#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Runs the named checks; without a name, all checks of the short tier, as the automatic run does. `long` names all
# checks of the long tier; run them before a change that matters is called done.
# usage: run_all.sh [CHECK... | long]
set -uo pipefail
cd "$(dirname "$0")/.." || exit 1

# Each check is one function: Check_NAME in the short tier, Long_NAME in the long one. Their first lines also give the
# list in the help text and the order of a run.

BuildAndTest() {  # BuildAndTest PRESET [CONFIGURE_OPTION...]
  local preset=$1
  shift
  rm -f "build/$preset/ctest.xml"
  cmake --preset "$preset" "$@"
  cmake --build --preset "$preset"
  ctest --preset "$preset" -j "$(nproc)"
}

Check_gcc() {  # builds with g++, with warnings as errors, and runs the tests, by the README's command
  rm -f build/release/ctest.xml
  scripts/test.sh
}

Check_clang() { BuildAndTest clang; }  # the same with clang++ and the traps that Android.bp enables
Check_asan() { BuildAndTest asan; }  # the same under the address and undefined-behaviour sanitizers
Check_tsan() { BuildAndTest tsan; }  # the same for the library under the thread sanitizer
Check_arm64() { BuildAndTest arm64; }  # the same for the library on 64-bit Arm, under emulation; needs scripts/install-deps.sh --arm64
Check_fuzz() {  # runs every fuzz target for a few seconds, and verifies packages while they change
  Fuzz 5000 100000
  build/fuzz/fuzz/changing_file
}

Check_benchmarks() { scripts/bench.sh --quick; }  # runs all benchmarks briefly, with small packages

Check_format() {  # clang-format changes nothing
  git ls-files -z '*.cc' '*.h' | xargs -0 clang-format --dry-run --Werror
}

Check_tidy() {  # clang-tidy finds nothing
  cmake --preset clang -D QUILLON_BUILD_BENCHMARKS=ON
  # The preset joins the files of a product, so that their headers are checked once. These checks judge the joint file.
  # One more is left out since it takes a third of the time, for the instances of other projects' templates.
  local -r but=-bugprone-suspicious-include,-google-global-names-in-headers,-performance-unnecessary-value-param
  Tidy "$but,-clang-analyzer-*" < <(
    sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/clang/compile_commands.json | sort -u)
}

Check_analyzer() {  # clang's static analyzer finds nothing in the library and the simulator
  Analyze util findings crypto jar signing_block schemes apk integrity simulator host
}

Check_libcxx() {  # the library compiles with the device's C++ library, and without run-time type information
  git ls-files -z 'util/*.cc' 'crypto/*.cc' 'jar/*.cc' 'signing_block/*.cc' 'schemes/*.cc' 'apk/*.cc' 'integrity/*.cc' |
    xargs -0 -n 4 -P "$(nproc)" clang++ -fsyntax-only -stdlib=libc++ -fno-rtti -std=c++17 \
      -Wall -Wextra -Wshadow -Wconversion -Werror -I. -Iinclude -Ihost/include -isystem /usr/include/android
}

Check_shell() {  # the scripts, and those in docs/ci.md and docs/fleet.md, pass shellcheck
  rm -rf build/recipes
  mkdir -p build/recipes
  (cd build/recipes && for document in ci fleet; do
    eval "$(sed -n 's,^awk .* ,&../../,p' "../../docs/$document.md")"
  done)
  git grep -lE '^#!/bin/bash' -- ':!*.md' | xargs shellcheck --severity=info build/recipes/[!.]*-*
}

Check_includes() { tests/includes.sh; }  # a folder includes only headers of folders before it
Check_documents() {  # the files, tests and names in the documents exist
  local name status=0
  # shellcheck disable=SC2016  # backquotes of Markdown
  for name in $(git grep -ohE '`[^`]+' -- '*.md' | sed 's/^`//; s/ .*//; s/[(…].*//' | sort -u); do
    case $name in
      build/* | *NAME* | UpperCamel) ;;
      [a-z.]*/*) [ ! -e "${name%%/*}" ] || [ -e "$name" ] ;;  # others are paths elsewhere
      [a-z]*.cc | [a-z]*.h | [a-z]*.sh) git ls-files --error-unmatch "*/$name" >/dev/null 2>&1 ;;
      corpus.*) [ -d "fuzz/corpus/${name#*.}" ] ;;
      transcript.*) [ -e "tests/transcripts/${name#*.}.txt" ] ;;
      [A-Z]*[a-z0-9].[A-Z]*) git grep -qE "^TEST(_[FP])?\(${name%.*}, ${name#*.}\)" -- 'tests/*.cc' ;;
      [A-Z]*[a-z]*) [[ $name == *[!A-Za-z0-9_]* ]] || git grep -qF "$name" -- ':!*.md' ;;
    esac || { echo "no such thing: $name, in" "$(git grep -lF "\`$name" -- '*.md')"; status=1; }
  done
  Reasons || status=1
  return "$status"
}

# The codes of docs/reasons.md are those of the tool, and a transcript shows each.
Reasons() {
  local code status=0 codes
  # What no package can bring about: no-reason would be a bug, and a workstation always has an SDK level.
  local -r unseen=' no-reason v3.sdk-unknown '
  # The tables from the second on list reasons.
  codes=$(sed -n '/^## /,$s/^| \(`[^|]*`\) |.*/\1/p' docs/reasons.md | grep -oE '[a-z0-9.-]+')
  for code in $codes; do
    grep -qE "\"(${code}|${code#v[23].})\"" cli/*.cc || { echo "the tool has no reason $code"; status=1; }
    if grep -qE "([:,] |\"code\":\")${code//./\\.}([:,] |\"|$)" tests/transcripts/*.txt; then
      [[ $unseen != *" $code "* ]] || { echo "a transcript shows $code, which none should"; status=1; }
    else
      [[ $unseen == *" $code "* ]] || { echo "no transcript shows $code"; status=1; }
    fi
  done
  # In the tool a code has a dot or a dash, follows its way in the table, or starts a reason with a sentence.
  while read -r code; do
    grep -qE "^(v[23]\.)?$code$" <<<"$codes" || { echo "docs/reasons.md lacks $code"; status=1; }
  done < <(grep -ohE '"[a-z0-9]+[.-][a-z0-9.-]+",|Way::k[A-Za-z]+, "[a-z.-]+"|\{"[a-z.-]+", "[^"]* |return \{"[a-z.-]+",$' \
    cli/{verdict,package_report,rules,warnings}.cc | sed -E 's/^[^"]*"([^"]*)".*/\1/')
  return "$status"
}

Check_manual() { tests/manual.sh build/release; }  # manual pages and completion scripts parse, and bash completes
Check_licence() {  # every file names its licence
  local unnamed
  unnamed=$(git grep -LF 'SPDX-License-Identifier: Apache-2.0' -- . \
    ':!LICENSE' ':!*.json' ':!*.apk' ':!*.svg' ':!fuzz/corpus') || true
  [ -z "$unnamed" ] || { echo "no SPDX-License-Identifier in: $unnamed"; return 1; }
}

Check_android_bp() { cmake -P tests/android_bp.cmake; }  # Android.bp parses and lists the sources of this build
Check_library() { BuildLibrary; }  # the library alone builds without the packages that tool, simulator and tests need
Check_abi() {  # the library's binary interface is the agreed one
  BuildLibrary
  tests/abi.sh build/library/libquillon.so
}

BuildLibrary() {
  local unneeded=()
  for package in nlohmann_json CLI11 fmt GTest benchmark; do
    unneeded+=(-D "CMAKE_DISABLE_FIND_PACKAGE_$package=ON")
  done
  cmake -G Ninja -S . -B build/library -D CMAKE_BUILD_TYPE=Release -D CMAKE_CXX_FLAGS=-g -D QUILLON_BUILD_TOOL=OFF \
    -D QUILLON_BUILD_SIMULATOR=OFF -D QUILLON_BUILD_TESTS=OFF "${unneeded[@]}"
  cmake --build build/library
}

Long_analyzer_tool() { Analyze anatomy cli manual; }  # clang's static analyzer finds nothing in the tool
Long_arm64_tool() {  # the tool on 64-bit Arm, under emulation
  cmake --preset arm64
  cmake --build --preset arm64_tool
  ctest --preset arm64_tool -j "$(nproc)"
}

Long_fuzzing() {  # runs every fuzz target for ten minutes, and prints executions and coverage
  Fuzz -1 -1 -max_total_time=600 -verbosity=1 -print_final_stats=1 2>&1 |
    grep -vE '^#[0-9]+\s+(NEW|REDUCE|RELOAD|pulse) |^INFO: '
}

Long_round_trip() { tests/round_trip.sh; }  # packages signed by apksigner verify, for all key types, schemes and lineages
Long_differences() { scripts/differences.sh --check; }  # docs/differences.md has the table that its script makes
Long_random_packages() {  # quillon and apksigner differ on 5,000 packages of a fuzzer's mutator only as docs/differences.md says
  scripts/differences.sh --random
}

Long_fleet() { tests/fleet.sh build/release; }  # a list of packages is judged once each, though jobs are killed; the throughput
Long_packages() { tests/packages.sh; }  # the Debian packages install into a bare root, verify, and leave nothing behind
Long_bare_root() { tests/bare_root.sh; }  # the README's two commands work in a Debian root that has only the base system and git

# Fuzz RUNS RUNS_OF_SMALL_PARSERS [OPTION...]
# New inputs go to the build folder, not to the corpora.
Fuzz() {
  cmake --preset fuzz
  cmake --build --preset fuzz
  export -f RunFuzzer
  printf '%s\n' build/fuzz/fuzz/*_fuzzer |
    xargs -P "$(nproc)" -I '{}' bash -c 'RunFuzzer "$@"' RunFuzzer '{}' "$@"
}

RunFuzzer() {  # RunFuzzer FUZZER RUNS RUNS_OF_SMALL_PARSERS [OPTION...]
  local name runs=$2
  name=$(basename "$1" _fuzzer)
  echo "$name"
  mkdir -p "build/fuzz/found/$name"
  case $name in
    base64 | manifest_mf) runs=$3 ;;
    large_package) runs=$((runs / 50)) ;;  # its packages have several MiB
  esac
  # The limits bound the memory for one input: all of the process, one block, and the input itself.
  "$1" "-runs=$runs" -seed=1 -timeout=25 -rss_limit_mb=2048 -malloc_limit_mb=512 -max_len=65536 -verbosity=0 \
    "${@:4}" -artifact_prefix="build/fuzz/found/" "build/fuzz/found/$name" "fuzz/corpus/$name"
}

Tidy() {  # Tidy CHECKS: over the files of the list on standard input
  xargs -d '\n' -n 1 -P "$(nproc)" clang-tidy -p build/clang --checks="$1" --quiet \
    2> >(grep -v 'warnings generated' >&2)
}

Analyze() {  # Analyze FOLDER...
  cmake --preset clang -D CMAKE_UNITY_BUILD=OFF  # it does not look into included files
  Tidy '-*,clang-analyzer-*,-clang-analyzer-optin.performance.Padding' < <(git ls-files "${@/%//*.cc}")
}

Names() {  # Names TIER
  sed -nE "s/^$1_([a-z0-9_]+)\(\).*/\1/p" tests/run_all.sh
}

Usage() {
  sed -nE '4,6s/^# //p' tests/run_all.sh
  sed -nE 's/^(Check|Long)_([a-z0-9_]+)\(\) \{.*  # (.*)/\2|\3/p' tests/run_all.sh |
    awk -F '|' '{ printf "  %-15s %s\n", $1, $2 }'
}

mapfile -t short < <(Names Check)
mapfile -t long < <(Names Long)
checks=("$@")
[ $# -ne 0 ] || checks=("${short[@]}")
[ "$*" != long ] || checks=("${long[@]}")

functions=()
for name in "${checks[@]}"; do
  function=$(declare -F "Check_$name" || declare -F "Long_$name") || { Usage >&2; exit 2; }
  functions+=("$function")
done

failedCount=0
for function in "${functions[@]}"; do
  echo "== ${function#*_}"
  SECONDS=0
  (set -e; "$function")
  if [ $? -ne 0 ]; then
    echo "== ${function#*_} failed" >&2
    failedCount=$((failedCount + 1))
  fi
  echo "== ${function#*_} took $SECONDS s"
done
exit "$failedCount"
