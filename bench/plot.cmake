# bench_plot draws with the program's picture library.
target_link_libraries(bench_plot PRIVATE sigfile_plot)
