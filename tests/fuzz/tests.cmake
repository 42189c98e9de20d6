# The fuzz targets' bodies are compiled into the test program too, so that the
# corpora and the regression inputs are replayed through the same code.
target_sources(sigfile_tests PRIVATE ${PROJECT_SOURCE_DIR}/fuzz/FuzzEntries.cpp)
target_include_directories(sigfile_tests PRIVATE ${PROJECT_SOURCE_DIR}/fuzz)
target_compile_definitions(sigfile_tests PRIVATE SIGFILE_FUZZ_DIR="${PROJECT_SOURCE_DIR}/fuzz")
