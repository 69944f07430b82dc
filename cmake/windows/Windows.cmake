# Settings of the MinGW-w64 build (included by the top-level CMakeLists.txt after the
# dependencies): Windows 10 API level, wide-character Windows calls, 64-bit file offsets, the POSIX
# calls the portable file code uses (Platform/windows/PosixCompat.h), and Wine to run the tests.
# WIN32_LEAN_AND_MEAN keeps the old winsock.h out of <windows.h>: Asio needs winsock2.h.
add_compile_definitions(_WIN32_WINNT=0x0A00 WINVER=0x0A00 UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN
  _FILE_OFFSET_BITS=64)
add_compile_options("SHELL:-include ${PROJECT_SOURCE_DIR}/Platform/include/Platform/windows/PosixCompat.h")
add_library(natc_posix_compat STATIC ${PROJECT_SOURCE_DIR}/Platform/windows/PosixCompat.cpp)
target_include_directories(natc_posix_compat PUBLIC ${PROJECT_SOURCE_DIR}/Platform/include)
link_libraries($<BUILD_INTERFACE:natc_posix_compat>)

set(NATC_WINE_PREFIX "${PROJECT_BINARY_DIR}/wine-prefix" CACHE PATH "Wine prefix the tests run in")
set(CMAKE_CROSSCOMPILING_EMULATOR ${PROJECT_SOURCE_DIR}/cmake/windows/wine-run.sh ${NATC_WINE_PREFIX})


# natc.exe against the Linux build's natc (the release tree beside this one) on the shared samples.
set(NATC_LINUX_NATC "${PROJECT_SOURCE_DIR}/build/tools/natc/natc" CACHE FILEPATH
  "The Linux build's natc, the reference for natc.exe's output")
function(natc_windows_compare_tests)
  if(NOT NATC_BUILD_TESTS OR NOT TARGET natc)
    return()
  endif()
  add_test(NAME natc_evtx_dump_matches_linux
    COMMAND ${CMAKE_COMMAND} "-DEMULATOR=${CMAKE_CROSSCOMPILING_EMULATOR}"
      -DWINDOWS_NATC=$<TARGET_FILE:natc> -DLINUX_NATC=${NATC_LINUX_NATC}
      -DSAMPLES=${NATC_SHARED_DIR}/samples/evtx -DWORK_DIR=${PROJECT_BINARY_DIR}/evtx-dump-compare
      -P ${PROJECT_SOURCE_DIR}/cmake/windows/CompareEvtxDump.cmake)
  set_tests_properties(natc_evtx_dump_matches_linux PROPERTIES LABELS "samples;tools" TIMEOUT 900)
endfunction()
