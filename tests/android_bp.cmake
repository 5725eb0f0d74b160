# SPDX-License-Identifier: Apache-2.0

# Compares the source lists of Android.bp, read by the platform's own parser, with those of this build.
# usage: cmake -P android_bp.cmake    needs golang-go and golang-github-google-blueprint-dev
cmake_minimum_required(VERSION 3.25)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH root)
include(${root}/cmake/Sources.cmake)
set(ENV{GO111MODULE} off)
set(ENV{GOPATH} /usr/share/gocode)
execute_process(
  COMMAND go run ${CMAKE_CURRENT_LIST_DIR}/android_bp.go ${root}/Android.bp
  OUTPUT_VARIABLE properties
  COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]+" properties "${properties}")

# Equal(LIST MODULE...): the modules together hold the files of the list, each once, and no other.
function(Equal list)
  list(JOIN ARGN "|" modules)
  set(actual ${properties})
  list(FILTER actual INCLUDE REGEX "^(${modules})(\\.target\\.[a-z]+)?\\.srcs ")
  list(TRANSFORM actual REPLACE "^[^ ]+ " "")
  set(expected ${${list}})
  list(SORT actual)
  list(SORT expected)
  if(NOT actual STREQUAL expected)
    message(SEND_ERROR "${list}\n  here:       ${expected}\n  Android.bp: ${actual}")
  endif()
endfunction()

Equal(QUILLON_SOURCES quillon_library)
Equal(QUILLON_LOG_ONLY_SOURCES libquillon)
Equal(QUILLON_RECORDER_SOURCES libquillon_static)
Equal(QUILLON_ANATOMY_SOURCES libquillon_anatomy)
Equal(QUILLON_HOST_SOURCES libquillon_host)
Equal(QUILLON_HX_SOURCES libhx_host)
Equal(TARNSIM_SOURCES libtarnsim)
list(APPEND QUILLON_CLI_SOURCES ${QUILLON_MALLOC_SOURCES})
Equal(QUILLON_CLI_SOURCES quillon)
Equal(QUILLON_TEST_SUPPORT_SOURCES libquillon_test_support)
Equal(QUILLON_TEST_SOURCES quillon_tests)
Equal(QUILLON_MEMORY_TEST_SOURCES quillon_memory_tests)
Equal(QUILLON_BENCHMARK_SOURCES quillon_benchmarks)

file(GLOB fuzzers RELATIVE ${root} ${root}/fuzz/*_fuzzer.cc)
foreach(fuzzer IN LISTS fuzzers)
  if(NOT properties MATCHES "_fuzzer\\.srcs ${fuzzer}(;|$)")
    message(SEND_ERROR "Android.bp builds no program from ${fuzzer}")
  endif()
endforeach()

# What a user of the library sees.
set(exported ${properties})
list(FILTER exported INCLUDE REGEX "^(quillon_library|libquillon)\\.export_include_dirs ")
if(NOT exported STREQUAL "quillon_library.export_include_dirs include")
  message(SEND_ERROR "Android.bp exports other headers than include/: ${exported}")
endif()
