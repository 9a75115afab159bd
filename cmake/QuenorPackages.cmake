# The packages that `cpack` makes: for Debian one with the tools and one to build against, for Windows a zip
# with the tools.

set(CPACK_PACKAGE_NAME quenor-storage)
set(CPACK_PACKAGE_VENDOR "Quenor")
set(CPACK_PACKAGE_CONTACT "Quenor <packages@quenor.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DIRECTORY "${CMAKE_BINARY_DIR}/packages")

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_COMPONENTS_ALL tools)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_COMPONENTS_ALL tools development)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME quenor-storage)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION database)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
  set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "Tools for the databases of the Quenor monitoring server\n\
quenor-createdb creates the pair of databases that the server lives on,\n\
quenor-dbinfo shows what a pair consists of and checks it.")

  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquenor-storage-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "Libraries below the Quenor monitoring server\n\
Static libraries for its time series and its nodes, headers, a CMake\n\
package and an example.")
endif()

include(CPack)
