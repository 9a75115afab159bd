# What is installed where, in two components: `tools` is what an administrator needs, `development` what a
# program needs that links the libraries. quenor_library() installs the libraries.

set(CMAKE_INSTALL_DOCDIR share/doc/quenor-storage CACHE PATH "Documents")
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(QUENOR_INCLUDE_DIR "${CMAKE_INSTALL_INCLUDEDIR}/quenor")
set(QUENOR_PACKAGE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/Quenor")

# The libraries above have been added with EXPORT QuenorTargets by the time this is called.
function(quenor_install_package)
  install(TARGETS quenor-createdb quenor-dbinfo
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
  install(FILES README.md CHANGELOG.md FORMAT.md DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT tools)
  # In a folder of their own, as README.md links them there.
  install(FILES docs/messages.md docs/dbinfo-json.md DESTINATION "${CMAKE_INSTALL_DOCDIR}/docs" COMPONENT tools)
  if(NOT WIN32)
    install(FILES docs/man/quenor-createdb.1 docs/man/quenor-dbinfo.1
      DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT tools)
    install(FILES docs/man/quenor-databases.5 DESTINATION "${CMAKE_INSTALL_MANDIR}/man5" COMPONENT tools)
    install(FILES completion/quenor-createdb completion/quenor-dbinfo
      DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT tools)
  endif()

  install(EXPORT QuenorTargets NAMESPACE Quenor:: DESTINATION "${QUENOR_PACKAGE_DIR}" COMPONENT development)
  # Until 1.0 a minor version may change anything.
  write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/QuenorConfigVersion.cmake"
    COMPATIBILITY SameMinorVersion)
  install(FILES cmake/QuenorConfig.cmake "${CMAKE_CURRENT_BINARY_DIR}/QuenorConfigVersion.cmake"
    DESTINATION "${QUENOR_PACKAGE_DIR}" COMPONENT development)
  install(DIRECTORY examples DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT development)
endfunction()
