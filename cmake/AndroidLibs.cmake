# SPDX-License-Identifier: Apache-2.0

# Defines imported targets Android::<name> for the platform libraries that Debian packages:
# headers in /usr/include/android, libraries in /usr/lib/<triplet>/android.

find_path(ANDROID_INCLUDE_DIR ziparchive/zip_archive.h
  PATHS /usr/include/android
  NO_DEFAULT_PATH
  DOC "Headers of the Android platform libraries")

set(missing)
if(NOT ANDROID_INCLUDE_DIR)
  list(APPEND missing "headers")
endif()

# The run-time packages of another processor lack the name without a version.
foreach(name IN ITEMS androidfw crypto log utils ziparchive)
  find_library(ANDROID_${name}_LIBRARY
    NAMES lib${name}.so lib${name}.so.0
    PATHS /usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/android
    NO_DEFAULT_PATH)
  mark_as_advanced(ANDROID_${name}_LIBRARY)
  if(NOT ANDROID_${name}_LIBRARY)
    list(APPEND missing lib${name})
    continue()
  endif()
  add_library(Android::${name} SHARED IMPORTED)
  set_target_properties(Android::${name} PROPERTIES
    IMPORTED_LOCATION "${ANDROID_${name}_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${ANDROID_INCLUDE_DIR}")
endforeach()

if(missing)
  list(JOIN missing ", " missing)
  message(FATAL_ERROR "Android platform libraries not found: ${missing}. "
    "scripts/install-deps.sh installs what the build needs.")
endif()
