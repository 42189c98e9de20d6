# The pictures' computations and drawing are tested inside the test program.
target_link_libraries(sigfile_tests PRIVATE sigfile_plot)
