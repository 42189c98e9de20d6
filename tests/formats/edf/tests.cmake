# EDF/BDF files written by the library, read back by an independent reader
# (MNE-Python).  The test reports itself skipped when MNE-Python is missing.
find_package(nlohmann_json CONFIG REQUIRED)
add_executable(edf_mne_sample ${CMAKE_CURRENT_SOURCE_DIR}/formats/edf/edf_mne_sample.cpp)
target_link_libraries(edf_mne_sample PRIVATE sigfile_static nlohmann_json::nlohmann_json)

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

# Every real EDF/BDF file of ../shared/realworld-edf (written by other
# programs) opened through CSigFile::Open and compared with MNE-Python.
# Skipped when the folder or MNE-Python is missing.
add_executable(recording_dump ${CMAKE_CURRENT_SOURCE_DIR}/formats/edf/recording_dump.cpp)
target_link_libraries(recording_dump PRIVATE sigfile_static nlohmann_json::nlohmann_json)
# A script comparing the recordings of a folder of ../shared, dumped by
# recording_dump, with MNE-Python; skipped (77) when either is missing.
function(sigfile_add_mne_comparison name script folder timeout)
  if(SIGFILE_SYSTEM_PYTHON)
    add_test(NAME ${name}
             COMMAND ${SIGFILE_SYSTEM_PYTHON} ${CMAKE_CURRENT_SOURCE_DIR}/${script}
                     ${PROJECT_SOURCE_DIR}/../shared/${folder} $<TARGET_FILE:recording_dump>)
    set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT ${timeout}
                         ENVIRONMENT "MPLBACKEND=Agg;MNE_DONTWRITE_HOME=true")
  endif()
endfunction()
sigfile_add_mne_comparison(EdfRealFilesAgreeWithMne formats/edf/compare_realworld.py realworld-edf 300)

# Kill tests: every command that writes, killed at each of its file-system
# calls (LD_PRELOAD shim), leaves each recording old or new, whole.
add_library(kill_shim MODULE ${CMAKE_CURRENT_SOURCE_DIR}/support/kill_shim.cpp)
target_link_libraries(kill_shim PRIVATE dl)
if(SIGFILE_SYSTEM_PYTHON)
  add_test(NAME CommandsSurviveKillsAtEveryFileCall
           COMMAND ${SIGFILE_SYSTEM_PYTHON} ${CMAKE_CURRENT_SOURCE_DIR}/formats/native/kill_commands.py
                   $<TARGET_FILE:sigfile_tool> $<TARGET_FILE:kill_shim>)
  set_tests_properties(CommandsSurviveKillsAtEveryFileCall PROPERTIES TIMEOUT 900)
endif()

# The Nihon Kohden set of ../shared/nihon-kohden against its EDF export and
# MNE-Python's reader.  Skipped when either is missing.
sigfile_add_mne_comparison(NihonKohdenAgreesWithItsEdfExportAndMne formats/nihonkohden/compare_nk.py nihon-kohden 120)
