# SPDX-License-Identifier: Apache-2.0

# Builds for 64-bit Arm. The development packages of two processors cannot be installed together, so the
# headers are the host's, and the libraries come from the run-time packages of arm64. The Find modules of
# this folder replace packages that exist only as development packages.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# That folder holds the substitute that 7z.c builds.
set(CMAKE_CROSSCOMPILING_EMULATOR
  qemu-aarch64 -E LD_LIBRARY_PATH=${CMAKE_BINARY_DIR}/arm64)
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,--allow-shlib-undefined)
# g++ 12 for Arm warns wrongly about inlined copies of vectors.
set(CMAKE_CXX_FLAGS_INIT "-Wno-array-bounds -Wno-stringop-overflow")
list(APPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})
