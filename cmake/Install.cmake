# SPDX-License-Identifier: Apache-2.0

# What `cmake --install` installs: the library, its public headers, the tool, the simulator, their manual pages and
# completion scripts, and the files for find_package and pkg-config. All paths in it are relative, so the installed
# tree can be moved. The components are the packages of cmake/Packages.cmake.

include(CMakePackageConfigHelpers)

install(TARGETS quillon EXPORT QuillonTargets
  LIBRARY COMPONENT library NAMELINK_COMPONENT development)
install(TARGETS quillon_hx COMPONENT library)
install(DIRECTORY include/quillon DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
if(TARGET tarnsim)
  install(TARGETS tarnsim COMPONENT simulator)
endif()
if(TARGET quillon_cli)
  install(TARGETS quillon_cli COMPONENT tool)
endif()

if(TARGET quillon_manual)
  set(manual ${PROJECT_BINARY_DIR}/manual)
  install(DIRECTORY ${manual}/pages/man1 DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT tool)
  install(FILES ${manual}/libquillon.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3 COMPONENT development)
  install(FILES ${manual}/libtarnsim.7 DESTINATION ${CMAKE_INSTALL_MANDIR}/man7 COMPONENT simulator)
  foreach(folder IN ITEMS bash:bash-completion/completions zsh:zsh/vendor-completions fish:fish/vendor_completions.d)
    string(REPLACE ":" ";" folder ${folder})
    list(GET folder 0 shell)
    list(GET folder 1 destination)
    install(DIRECTORY ${manual}/pages/${shell}/
      DESTINATION ${CMAKE_INSTALL_DATADIR}/${destination} COMPONENT tool)
  endforeach()
endif()

# Each package has the licence, the news, and the documents that its users need.
set(libraryPackage libquillon${PROJECT_VERSION_MAJOR})
set(developmentPackage libquillon-dev)
set(toolPackage quillon)
set(simulatorPackage libtarnsim)
set(libraryDocuments)
set(developmentDocuments docs/security.md)
set(toolDocuments docs/reasons.md docs/ci.md docs/fleet.md docs/differences.md)
set(simulatorDocuments docs/simulator.md)
set(components library development)
if(TARGET quillon_cli)
  list(APPEND components tool)
endif()
if(TARGET tarnsim)
  list(APPEND components simulator)
endif()
foreach(component IN LISTS components)
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${${component}Package})
  install(FILES LICENSE NEWS.md ${${component}Documents} DESTINATION ${documents} COMPONENT ${component})
endforeach()

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/Quillon)
install(EXPORT QuillonTargets
  NAMESPACE Quillon::
  FILE QuillonConfig.cmake
  DESTINATION ${packageDir}
  COMPONENT development)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QuillonConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QuillonConfigVersion.cmake
  DESTINATION ${packageDir} COMPONENT development)

set(pkgConfigDir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH prefixFromPkgConfig
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/quillon.pc.in quillon.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quillon.pc DESTINATION ${pkgConfigDir} COMPONENT development)
