# SPDX-License-Identifier: Apache-2.0

# Defines fmt::fmt as a header-only target.
find_path(fmt_INCLUDE_DIR fmt/format.h)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(fmt REQUIRED_VARS fmt_INCLUDE_DIR)
if(fmt_FOUND AND NOT TARGET fmt::fmt)
  add_library(fmt::fmt INTERFACE IMPORTED)
  target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY)
endif()
