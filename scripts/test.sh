#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs missing packages, builds the library and the tool, and runs all tests.
# usage: test.sh [CTEST_OPTION...]    such as: test.sh -R ProcessHashes
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh
cmake --preset release
cmake --build --preset release
ctest --preset release -j "$(nproc)" "$@"
