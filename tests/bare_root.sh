#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Runs the README's two commands in a Debian root that has only the base system and git. Tests the last commit, not
# the working tree. Needs root and mmdebstrap (scripts/install-deps.sh --long).
# usage: bare_root.sh
set -euo pipefail
cd "$(dirname "$0")/.."

. tests/debian_root.sh
MakeRoot git

Log "cloning the repository"
git clone --quiet --no-hardlinks . "$root/libquillon"
for command in scripts/demo.sh scripts/test.sh; do
  Log "$command"
  InRoot env -C /libquillon "$command"
done
