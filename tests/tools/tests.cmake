# The tests call the sigfile program's description of spectral files
# directly (the program's commands are otherwise run as a process).
target_sources(sigfile_tests PRIVATE ${PROJECT_SOURCE_DIR}/tools/sigfile/SpectralInfoCommand.cpp)
target_include_directories(sigfile_tests PRIVATE ${PROJECT_SOURCE_DIR}/tools/sigfile)
find_package(nlohmann_json CONFIG REQUIRED)
target_link_libraries(sigfile_tests PRIVATE sigfile_json)
find_package(CLI11 CONFIG QUIET)
if(CLI11_FOUND)
  target_link_libraries(sigfile_tests PRIVATE CLI11::CLI11)
endif()
