# SPDX-License-Identifier: Apache-2.0

# cpack runs this before it packs the staged files. Adds what Debian's policy asks for.

file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../../NEWS.md title REGEX "^## [0-9.]+, ")
list(GET title 0 title)
string(REGEX REPLACE ".*, " "" date "${title}")
execute_process(COMMAND date --rfc-email --utc --date=${date} OUTPUT_VARIABLE date
  OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} name)
  set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component})
  set(documents ${root}/usr/share/doc/${package})

  # Debian has the text of the licence.
  file(REMOVE ${documents}/LICENSE)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/copyright ${documents}/copyright COPYONLY
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  file(WRITE ${documents}/changelog
    "quillon (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
    "  * /usr/share/doc/${package}/NEWS.md says what is new.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
  file(GLOB pages ${root}/usr/share/man/man*/*)
  execute_process(COMMAND gzip -9n ${documents}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
  if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/overrides/${package})
    file(COPY ${CMAKE_CURRENT_LIST_DIR}/overrides/${package}
      DESTINATION ${root}/usr/share/lintian/overrides
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  endif()
endforeach()
