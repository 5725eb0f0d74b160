# SPDX-License-Identifier: Apache-2.0

# The Debian packages that `cpack --preset package` makes, one from each component of cmake/Install.cmake.
# cmake/debian/finish.cmake adds what only Debian's packages contain.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quillon)
set(CPACK_PACKAGE_CONTACT "${QUILLON_PACKAGE_CONTACT}")
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/finish.cmake)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE quillon)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# Computed from what the programs and libraries link.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
# For packages that link the library, and for the loader's cache.
set(control ${PROJECT_BINARY_DIR}/debian)
file(CONFIGURE OUTPUT ${control}/shlibs CONTENT
  "libquillon ${PROJECT_VERSION_MAJOR} ${libraryPackage} (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT ${control}/triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_CONTROL_EXTRA ${control}/triggers)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${libraryPackage})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "verification of signed Android packages, the library
libquillon verifies the signature of a package by the schemes v3, v2 and JAR,
identifies its signer, and asks the kernel to label the files that belong to
the package.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${developmentPackage})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "verification of signed Android packages, for developers
The headers of libquillon, the manual page libquillon(3), and the files for
find_package and pkg-config.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ${toolPackage})
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS ${simulatorPackage})  # for --simulate
set(CPACK_COMPONENT_TOOL_DEPENDS library)
set(CPACK_COMPONENT_TOOL_DESCRIPTION "verify signed Android packages and label their files
quillon prints the verdict on each package with its signer, or the reason why
it is refused and what to do next, for people and as JSON. It also makes the
platform's requests for labels, to a kernel or to a simulated one.")

set(CPACK_DEBIAN_SIMULATOR_PACKAGE_NAME ${simulatorPackage})
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_SIMULATOR_PACKAGE_DEPENDS android-libboringssl)  # loaded at run time
set(CPACK_COMPONENT_SIMULATOR_DESCRIPTION "simulated kernel for integrity labels
libtarnsim is preloaded into a program and carries out its requests to Tarn,
the kernel's file-integrity subsystem, by the kernel's rules. It rehearses and
tests what a device does.")

include(CPack)
