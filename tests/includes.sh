#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Checks the order of folders, which docs/architecture.md shows too: a folder includes its own headers and those of
# folders before it.
# usage: includes.sh
set -euo pipefail
cd "$(dirname "$0")/.."

# The one exception is a pair of folders: schemes/ uses these three headers of signing_block/, and apk_package.cc,
# which creates the scheme objects, uses schemes/.
pair='schemes/[a-z0-9_]+\.(h|cc) signing_block/(raw_data|zip_format|process_hashes)\.h|signing_block/apk_package\.cc schemes/.*'

git grep -oE '^#include ["<][a-z_]+/[a-z0-9_]+\.h[">]' -- util findings crypto jar signing_block schemes apk integrity anatomy cli simulator host include |
  tr -d '"<>' | sed 's/:#include / /' |
  awk -v pair="^($pair)$" '
    BEGIN {
      split("util findings crypto jar signing_block schemes apk integrity anatomy cli", stairs)
      for (step in stairs) place[stairs[step]] = step + 0
      # The substitutes for the kernel and the platform use some helpers and the kernel interface of the library.
      place["simulator"] = place["host"] = place["integrity"] + 0.5
      split("manifest_mf=jar apk=apk tarn=integrity signing=integrity certificate=integrity entry_points=integrity", owners, /[ =]/)
      for (i = 1; i in owners; i += 2) owner["quillon/" owners[i] ".h"] = owners[i + 1]
    }
    {
      from = folder($1); to = folder($2)
      if (to == "" || from == to || $0 ~ pair) next
      if (place[from] <= place[to] || (from == "schemes" && to == "signing_block")) { print $1 " includes " $2; bad = 1 }
    }
    # Returns the folder that a file belongs to; "" for headers of other projects.
    function folder(file, name) {
      sub(/^include\//, "", file)
      if (file in owner) return owner[file]
      name = file
      sub(/\/.*/, "", name)
      if (name == "quillon") return "util"
      return name in place ? name : ""
    }
    END { exit bad }'
