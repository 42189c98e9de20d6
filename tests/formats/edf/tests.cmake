# EDF/BDF files written by the library, read back by an independent reader
# (MNE-Python).  The test reports itself skipped when MNE-Python is missing.
find_package(nlohmann_json CONFIG REQUIRED)
add_executable(edf_mne_sample ${CMAKE_CURRENT_SOURCE_DIR}/formats/edf/edf_mne_sample.cpp)
target_link_libraries(edf_mne_sample PRIVATE sigfile nlohmann_json::nlohmann_json)

# The system interpreter first: that is where the distribution's python3-mne lives.
find_program(SIGFILE_SYSTEM_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(NOT SIGFILE_SYSTEM_PYTHON)
  find_program(SIGFILE_SYSTEM_PYTHON NAMES python3)
endif()
if(SIGFILE_SYSTEM_PYTHON)
  add_test(NAME EdfReadByMne
           COMMAND ${SIGFILE_SYSTEM_PYTHON} ${CMAKE_CURRENT_SOURCE_DIR}/formats/edf/check_with_mne.py
                   $<TARGET_FILE:edf_mne_sample>)
  set_tests_properties(EdfReadByMne PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 120
                       ENVIRONMENT "MPLBACKEND=Agg;MNE_DONTWRITE_HOME=true")
endif()
