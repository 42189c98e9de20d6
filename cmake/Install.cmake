# Installation: the shared library with its public headers, a CMake package
# (find_package(sigfile CONFIG) gives sigfile::sigfile), a pkg-config file,
# the sigfile program and its manual page.
include(CMakePackageConfigHelpers)

set(SIGFILE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/sigfile)

install(TARGETS sigfile EXPORT sigfileTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The public headers keep their folders (they include each other as
# "folder/Header.h"); the format drivers' own headers stay private, except the
# native recording's class.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sigfile
        FILES_MATCHING PATTERN "*.h" PATTERN "formats" EXCLUDE)
install(FILES ${PROJECT_SOURCE_DIR}/src/formats/native/STDSIGFI.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sigfile/formats/native)
install(EXPORT sigfileTargets NAMESPACE sigfile:: DESTINATION ${SIGFILE_CMAKE_DIR})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/sigfileConfig.cmake.in
  ${PROJECT_BINARY_DIR}/sigfileConfig.cmake INSTALL_DESTINATION ${SIGFILE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/sigfileConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sigfileConfig.cmake ${PROJECT_BINARY_DIR}/sigfileConfigVersion.cmake
        DESTINATION ${SIGFILE_CMAKE_DIR})

# From <prefix>/<libdir>/pkgconfig back to <prefix>.
string(REGEX REPLACE "[^/]+" ".." SIGFILE_PC_UP "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
configure_file(${CMAKE_CURRENT_LIST_DIR}/sigfile.pc.in ${PROJECT_BINARY_DIR}/sigfile.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/sigfile.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS sigfile_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${PROJECT_SOURCE_DIR}/docs/sigfile.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
