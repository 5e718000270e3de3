# Run by cpack when each component lies in a folder of its own, before the packages are written.
cmake_minimum_required(VERSION 3.25)
set(version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
set(control ${CPACK_TOPLEVEL_DIRECTORY}/control)
set(names)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  list(APPEND names ${component}=${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
endforeach()

# Equal trees give equal packages: the date is that of the changelog's newest entry.
execute_process(
  COMMAND dpkg-parsechangelog -l ${CPACK_VQNS_SOURCE_DIR}/packaging/changelog -S Timestamp
  OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(ENV{SOURCE_DATE_EPOCH} ${date})
execute_process(
  COMMAND ${CPACK_VQNS_SOURCE_DIR}/packaging/stage.sh
    ${CPACK_VQNS_SOURCE_DIR} ${CPACK_TEMPORARY_INSTALL_DIRECTORY} ${control} ${version} ${names}
  COMMAND_ERROR_IS_FATAL ANY)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${control}/symbols ${control}/shlibs ${control}/triggers)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  file(STRINGS ${control}/${component}.depends depends)  # one line, or none
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS ${depends})
endforeach()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${version})")
