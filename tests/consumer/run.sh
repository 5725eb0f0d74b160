#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs a finished build into a folder of its own, then builds and runs a program against the installed tree
# alone: found by find_package, and once more by pkg-config. The program includes every installed header, and has
# headers of its own with the names of some of the library's.
# usage: run.sh BUILD_FOLDER COMPILER
set -euo pipefail

build=$1
export CXX=$2
here=$(cd "$(dirname "$0")" && pwd)
sample=$here/../../samples/v3.apk
expected='org.quillon.sample.v3 scheme 3 key '
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"  # finds whatever still names the first folder
cp "$here/CMakeLists.txt" "$here/main.cc" "$work"  # away from the repository's own headers
(cd "$work/prefix/include" && printf '#include <%s>\n' quillon/*.h) >"$work/all_headers.h"
mkdir "$work/util"
for name in export file strings; do echo '#error "the consumer'"'"'s own header"' >"$work/util/$name.h"; done

printf '#include <quillon/%s.h>\n' base64 entry_points tarn |
  "$CXX" -x c -std=c99 -pedantic-errors -Wall -Werror -fsyntax-only -I"$work" -I"$work/prefix/include" -

Run() {  # Run TITLE COMMAND...
  local output
  output=$("${@:2}")
  echo "$1: $output"
  [[ $output == "$expected"?* ]]
}

cmake -G Ninja -S "$work" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
Run find_package "$work/build/consumer" "$sample"

pkgConfigFile=$(find "$work/prefix" -name quillon.pc)
export PKG_CONFIG_PATH=${pkgConfigFile%/*}
read -ra flags < <(pkg-config --cflags --libs quillon)
"$CXX" -std=c++17 -I"$work" "$work/main.cc" -o "$work/consumer" "${flags[@]}"
LD_LIBRARY_PATH=$(pkg-config --variable=libdir quillon) Run pkg-config "$work/consumer" "$sample"

"$work/prefix/bin/quillon" verify "$sample"
