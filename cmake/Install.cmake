# SPDX-License-Identifier: Apache-2.0

# What `cmake --install` installs: the library, its public headers, the tool, the simulator, and the files
# for find_package and pkg-config. All paths in it are relative, so the installed tree can be moved.

include(CMakePackageConfigHelpers)

install(TARGETS quillon EXPORT QuillonTargets)
install(TARGETS quillon_hx)
foreach(target IN ITEMS tarnsim quillon_cli)
  if(TARGET ${target})
    install(TARGETS ${target})
  endif()
endforeach()

install(DIRECTORY include/quillon DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/Quillon)
install(EXPORT QuillonTargets
  NAMESPACE Quillon::
  FILE QuillonConfig.cmake
  DESTINATION ${packageDir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuillonConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuillonConfigVersion.cmake DESTINATION ${packageDir})

set(pkgConfigDir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefixFromPkgConfig
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/quillon.pc.in quillon.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quillon.pc DESTINATION ${pkgConfigDir})
