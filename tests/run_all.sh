#!/bin/bash
# Checks the code in each configuration named, by default in all of them.
# usage: run_all.sh [CONFIGURATION...]
#   gcc clang     build with that compiler, warnings being errors, and run the tests
#   device        the same by clang with the checks that the platform's build asks for
#   asan tsan     the same with sanitizers: address and undefined behaviour, data races
#   arm64         the same for 64-bit Arm, under emulation; needs scripts/install-deps.sh --arm64
#   fuzz          every fuzz target finds nothing in a fixed number of runs
#   benchmarks    every benchmark but those of the largest packages runs shortly, without an error
#   format tidy   clang-format and clang-tidy find nothing
#   libcxx        the library compiles with the device's C++ library, too
#   exports       the library exports the agreed names
cd "$(dirname "$0")/.." || exit 1

BuildAndTest() {  # BuildAndTest PRESET [CONFIGURE_OPTION...]
  local preset=$1
  shift
  rm -f "build/$preset/ctest.xml"
  cmake --preset "$preset" "$@"
  cmake --build --preset "$preset"
  ctest --preset "$preset" -j "$(nproc)"
}

gcc() { BuildAndTest release; }
clang() { BuildAndTest clang; }
device() { BuildAndTest device; }
asan() { BuildAndTest asan; }
tsan() { BuildAndTest tsan; }
arm64() { BuildAndTest arm64; }

# A few seconds for each target, and for packages that change while they are verified. What is found besides goes to the build folder, not to the corpora.
fuzz() {
  cmake --preset fuzz
  cmake --build --preset fuzz
  local fuzzer name runs
  for fuzzer in build/fuzz/fuzz/*_fuzzer; do
    name=$(basename "$fuzzer" _fuzzer)
    echo "$name"
    mkdir -p "build/fuzz/found/$name"
    runs=5000
    [[ $name != @(base64|manifest_mf|pkcs7) ]] || runs=100000
    "$fuzzer" -runs=$runs -seed=1 -timeout=25 -verbosity=0 \
      -artifact_prefix="build/fuzz/found/" "build/fuzz/found/$name" "fuzz/corpus/$name"
  done
  echo changing_file
  build/fuzz/fuzz/changing_file
}

benchmarks() {
  local output
  cmake --preset release -D QUILLON_BUILD_BENCHMARKS=ON
  cmake --build --preset release --target quillon_benchmarks make_package measure nothing
  output=$(build/release/benchmarks/quillon_benchmarks --benchmark_min_time=0.001 \
    --benchmark_filter='-MiB:512|FromDisk' 2>&1) || { echo "$output"; return 1; }
  echo "$output"
  [[ $output != *ERROR* ]]
}

format() {
  find . -path ./build -prune -o \( -name '*.cc' -o -name '*.h' \) -print0 |
    xargs -0 clang-format --dry-run --Werror
}

tidy() {
  cmake --preset clang -D QUILLON_BUILD_BENCHMARKS=ON
  sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/clang/compile_commands.json |
    sort -u | xargs -d '\n' -n 1 -P "$(nproc)" clang-tidy -p build/clang --quiet \
    2> >(grep -v 'warnings generated' >&2)
}

# Without run-time type information, as on a device.
libcxx() {
  find util crypto signing_block schemes jar apk integrity -name '*.cc' -print0 |
    xargs -0 -n 4 -P "$(nproc)" clang++ -fsyntax-only -stdlib=libc++ -fno-rtti -std=c++17 \
      -Wall -Wextra -Wshadow -Wconversion -Werror -I. -Ihost/include -isystem /usr/include/android
}

exports() {
  cmake --preset release
  cmake --build --preset release --target quillon
  tests/exports.sh build/release/libquillon.so
}

configurations=("$@")
[ $# -ne 0 ] || configurations=(gcc clang device asan tsan arm64 fuzz benchmarks format tidy libcxx exports)
for name in "${configurations[@]}"; do
  case $name in
    gcc | clang | device | asan | tsan | arm64 | fuzz | benchmarks | format | tidy | libcxx | exports) ;;
    *) sed -n '2,13s/^# //p' "$0" >&2; exit 2 ;;
  esac
done

status=0
for name in "${configurations[@]}"; do
  echo "== $name"
  (set -euo pipefail; "$name")
  if [ $? -ne 0 ]; then
    echo "== $name failed" >&2
    status=1
  fi
done
exit $status
