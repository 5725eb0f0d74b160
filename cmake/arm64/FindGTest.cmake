# SPDX-License-Identifier: Apache-2.0

# Defines GTest::gmock_main and the other GTest targets, built from the sources that Debian installs.
find_path(GTest_SOURCE_DIR googlemock/CMakeLists.txt PATHS /usr/src/googletest NO_DEFAULT_PATH)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GTest REQUIRED_VARS GTest_SOURCE_DIR)
if(GTest_FOUND AND NOT TARGET GTest::gmock_main)
  set(INSTALL_GTEST OFF)
  add_subdirectory(${GTest_SOURCE_DIR} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  foreach(library IN ITEMS gtest gtest_main gmock gmock_main)
    target_compile_options(${library} PRIVATE -w)
  endforeach()
endif()
