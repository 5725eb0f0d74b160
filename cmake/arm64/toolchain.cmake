# SPDX-License-Identifier: Apache-2.0

# Builds for 64-bit Arm beside the host's own packages. The development packages of both processors
# cannot stand side by side, so headers are the host's, libraries come from the run-time packages of
# arm64, and the packages that this folder has a Find module for are not asked for binaries.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# 7z.c tells what is looked for in that folder.
set(CMAKE_CROSSCOMPILING_EMULATOR
  qemu-aarch64 -E LD_LIBRARY_PATH=${CMAKE_BINARY_DIR}/arm64)
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,--allow-shlib-undefined)
# g++ 12 for Arm takes copies of vectors, once inlined, for accesses outside them.
set(CMAKE_CXX_FLAGS_INIT "-Wno-array-bounds -Wno-stringop-overflow")
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})
