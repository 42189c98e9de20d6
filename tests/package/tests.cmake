# The installed package, used from outside (CMake and pkg-config consumers).
# The sanitizer build's library needs its runtime in every consumer: the
# check runs on the plain build only.
if(NOT SIGFILE_SANITIZE)
  add_test(NAME PackageInstallsAndLinksBothWays
           COMMAND ${CMAKE_CURRENT_LIST_DIR}/check_package.sh ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}
                   ${CMAKE_CURRENT_BINARY_DIR}/package-check)
  set_tests_properties(PackageInstallsAndLinksBothWays PROPERTIES TIMEOUT 300)
endif()
