# Compares Android.bp with what this build is made from.
# usage: cmake -D VERSION=... -P android_bp.cmake
cmake_minimum_required(VERSION 3.25)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH root)
include(${root}/cmake/Sources.cmake)
file(READ ${root}/Android.bp text)

# Every `srcs` of a module goes to the list <name>_srcs.
string(REPLACE "\n}\n" ";" modules "${text}")
set(allSources)
foreach(module IN LISTS modules)
  if(NOT module MATCHES "name: \"([^\"]+)\"")
    continue()
  endif()
  set(name ${CMAKE_MATCH_1})
  string(REGEX MATCHALL "srcs: \\[[^]]*\\]" lists "${module}")
  string(REGEX MATCHALL "\"[^\"]+\"" ${name}_srcs "${lists}")
  list(TRANSFORM ${name}_srcs REPLACE "\"" "")
  list(APPEND allSources ${${name}_srcs})
endforeach()

# Equal(TITLE LIST MODULE...): the modules together hold the files of the list and no other.
function(Equal title expected)
  set(actual)
  foreach(name IN LISTS ARGN)
    list(APPEND actual ${${name}_srcs})
  endforeach()
  set(missing ${expected})
  list(REMOVE_ITEM missing ${actual} "")
  set(extra ${actual})
  list(REMOVE_ITEM extra ${expected} "")
  list(LENGTH expected expectedCount)
  list(LENGTH actual actualCount)
  if(missing OR extra OR NOT actualCount EQUAL expectedCount)
    message(SEND_ERROR "${title}: Android.bp lacks \"${missing}\", has besides \"${extra}\"; "
      "${actualCount} entries for ${expectedCount}")
  endif()
endfunction()

Equal("library" "${QUILLON_SOURCES}" quillon_library)
Equal("host substitutes" "${QUILLON_HOST_SOURCES}" libquillon_host)
Equal("libhx substitute" "${QUILLON_HX_SOURCES}" libhx_host)
Equal("simulator" "${TARNSIM_SOURCES}" libtarnsim)
Equal("tool" "${QUILLON_CLI_SOURCES}" quillon)
Equal("test support" "${QUILLON_TEST_SUPPORT_SOURCES}" libquillon_test_support)
Equal("tests" "${QUILLON_TEST_SOURCES}" quillon_tests)
Equal("memory tests" "${QUILLON_MEMORY_TEST_SOURCES}" quillon_memory_tests)
Equal("benchmarks" "${QUILLON_BENCHMARK_SOURCES}" quillon_benchmarks)

file(GLOB programs RELATIVE ${root} ${root}/fuzz/*_fuzzer.cc)
list(REMOVE_ITEM programs ${allSources} "")
if(programs)
  message(SEND_ERROR "Android.bp builds no program from ${programs}")
endif()

if(NOT text MATCHES "-DQUILLON_VERSION=[\\]\"${VERSION}[\\]\"")
  message(SEND_ERROR "Android.bp names another version than ${VERSION}")
endif()
