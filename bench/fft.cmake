# bench_fft compares the library's real FFT with FFTW (single precision) when
# the fftw3f library is installed; without it the benchmark compares with a
# textbook radix-2 FFT instead.  Only the benchmark links FFTW, never the library.
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(SIGFILE_FFTW3F QUIET IMPORTED_TARGET fftw3f)
endif()
if(SIGFILE_FFTW3F_FOUND)
  target_link_libraries(bench_fft PRIVATE PkgConfig::SIGFILE_FFTW3F)
  target_compile_definitions(bench_fft PRIVATE SIGFILE_BENCH_HAVE_FFTW3F=1)
else()
  find_library(SIGFILE_FFTW3F_LIBRARY fftw3f)
  find_path(SIGFILE_FFTW3F_INCLUDE fftw3.h)
  if(SIGFILE_FFTW3F_LIBRARY AND SIGFILE_FFTW3F_INCLUDE)
    target_include_directories(bench_fft PRIVATE ${SIGFILE_FFTW3F_INCLUDE})
    target_link_libraries(bench_fft PRIVATE ${SIGFILE_FFTW3F_LIBRARY})
    target_compile_definitions(bench_fft PRIVATE SIGFILE_BENCH_HAVE_FFTW3F=1)
  endif()
endif()
