# Helpers shared by every component: one way to declare a library, a test, a benchmark.
include(${CMAKE_CURRENT_LIST_DIR}/StandinTests.cmake)

function(natc_setup_toolchain)
  # Fuzz builds instrument every library for coverage; only the fuzz targets link the driver.
  if(NATC_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
  endif()
  find_program(CCACHE_PROGRAM ccache)
  if(CCACHE_PROGRAM)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM} PARENT_SCOPE)
    set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE_PROGRAM} PARENT_SCOPE)
  endif()
  # Line tables are all that stack traces and profiles need; full debug info and -O2 under the
  # sanitizers make the test build three times slower for nothing the tests can see.
  if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    if(NATC_SANITIZE STREQUAL "")
      add_compile_options(-g1)
    else()
      add_compile_options(-O1 -g1)
    endif()
  endif()
  if(NATC_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
  elseif(NATC_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
  elseif(NOT NATC_SANITIZE STREQUAL "")
    message(FATAL_ERROR "NATC_SANITIZE must be empty, address or thread")
  endif()
endfunction()

# Warnings for our own targets only (third-party headers come in as SYSTEM).
function(natc_warnings target)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    return()
  endif()
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra)
  endif()
endfunction()

# natc_library(name [STATIC|SHARED|OBJECT|INTERFACE]
#              SOURCES files... INCLUDE dirs... DEPS public-libs... PRIVATE_DEPS libs...)
# INCLUDE dirs are public include roots, relative to the current source dir.
function(natc_library name)
  cmake_parse_arguments(A "STATIC;SHARED;OBJECT;INTERFACE" "" "SOURCES;INCLUDE;DEPS;PRIVATE_DEPS" ${ARGN})
  if(A_INTERFACE)
    add_library(${name} INTERFACE)
    set(scope INTERFACE)
  else()
    set(kind STATIC)
    if(A_SHARED)
      set(kind SHARED)
    elseif(A_OBJECT)
      set(kind OBJECT)
    endif()
    add_library(${name} ${kind} ${A_SOURCES})
    set(scope PUBLIC)
    natc_warnings(${name})
  endif()
  foreach(dir ${A_INCLUDE})
    target_include_directories(${name} ${scope} $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}/${dir}>)
  endforeach()
  if(A_DEPS)
    target_link_libraries(${name} ${scope} ${A_DEPS})
  endif()
  if(A_PRIVATE_DEPS)
    target_link_libraries(${name} PRIVATE ${A_PRIVATE_DEPS})
  endif()
endfunction()

# natc_test(name SOURCES files... DEPS libs... [LABELS labels...] [ENV VAR=value...])
# Labels in use: unit (default), threading (also run under TSan), samples (needs ../shared),
# platform (needs a real feature of this machine: /proc, /sys), tools (needs external readers),
# standin (needs a Linux stand-in of a Windows service), posix (drives natc through POSIX
# process control); neither is built for Windows (see StandinTests.cmake).
function(natc_test name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS;LABELS;ENV" ${ARGN})
  if(NOT A_LABELS)
    set(A_LABELS unit)
  endif()
  set(standin_on_windows OFF)
  if(name IN_LIST NATC_STANDIN_TESTS)
    list(APPEND A_LABELS standin)
    set(standin_on_windows ${WIN32})
  endif()
  if(name IN_LIST NATC_POSIX_TESTS)
    list(APPEND A_LABELS posix)
    set(standin_on_windows ${WIN32})
  endif()
  add_executable(${name} ${A_SOURCES})
  # The target stays declared (its folder's CMakeLists.txt may add to it) but is neither built
  # nor run on Windows.
  if(standin_on_windows)
    set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    return()
  endif()
  natc_warnings(${name})
  target_link_libraries(${name} PRIVATE ${A_DEPS} GTest::gmock GTest::gtest_main)
  # The header-only test helpers (sample paths, command runner) are open to every test.
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/Support/include)
  target_compile_definitions(${name} PRIVATE
    NATC_SHARED_DIR="${NATC_SHARED_DIR}"
    NATC_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  set(env "NATC_SHARED_DIR=${NATC_SHARED_DIR}" ${A_ENV})
  set_property(GLOBAL APPEND PROPERTY NATC_ALL_TESTS ${name})
  if("threading" IN_LIST A_LABELS)
    set_property(GLOBAL APPEND PROPERTY NATC_THREADING_TESTS ${name})
  endif()
  # Under Wine each start costs time: one test per executable, run through the emulator.
  if(CMAKE_CROSSCOMPILING)
    add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
    set_tests_properties(${name} PROPERTIES LABELS "${A_LABELS}" ENVIRONMENT "${env}")
    return()
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
  # gtest_discover_tests splits list values (two labels would become a label and a bogus
  # property), so labels and environment are set on the discovered tests by a script that
  # ctest reads right after the discovery results.
  set(properties ${CMAKE_CURRENT_BINARY_DIR}/${name}_properties.cmake)
  file(WRITE ${properties}
    "if(DEFINED ${name}_TESTS)\n"
    "  set_tests_properties(\${${name}_TESTS} PROPERTIES LABELS [==[${A_LABELS}]==] ENVIRONMENT [==[${env}]==])\n"
    "endif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${properties})
endfunction()

# natc_benchmark(name SOURCES files... DEPS libs...)
function(natc_benchmark name)
  cmake_parse_arguments(A "" "" "SOURCES;DEPS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  natc_warnings(${name})
  target_link_libraries(${name} PRIVATE ${A_DEPS} benchmark::benchmark)
  target_compile_definitions(${name} PRIVATE
    NATC_SHARED_DIR="${NATC_SHARED_DIR}"
    NATC_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
endfunction()

# Adds every immediate subdirectory of DIR that has a CMakeLists.txt, in name order.
function(natc_add_subdirectories dir)
  file(GLOB children RELATIVE ${CMAKE_CURRENT_SOURCE_DIR}/${dir} ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*)
  list(SORT children)
  foreach(child ${children})
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/${child}/CMakeLists.txt)
      add_subdirectory(${dir}/${child})
    endif()
  endforeach()
endfunction()

# natc_tool_test(name SOURCES files... [DEPS libs...] LABELS labels...)
# A test that drives the natc binary as a user would: NATC_BINARY is its path, the shared test
# support (command runner, JSON) is linked. Skipped when natc is not built.
function(natc_tool_test name)
  if(NOT TARGET natc)
    return()
  endif()
  cmake_parse_arguments(A "" "" "SOURCES;DEPS;LABELS" ${ARGN})
  natc_test(${name} SOURCES ${A_SOURCES} DEPS test_support nlohmann_json::nlohmann_json ${A_DEPS} LABELS ${A_LABELS})
  target_compile_definitions(${name} PRIVATE NATC_BINARY="$<TARGET_FILE:natc>")
  add_dependencies(${name} natc)
endfunction()

# Umbrella targets: all_tests builds every test, threading_tests those run under TSan.
function(natc_finish_test_targets)
  get_property(all GLOBAL PROPERTY NATC_ALL_TESTS)
  get_property(threading GLOBAL PROPERTY NATC_THREADING_TESTS)
  add_custom_target(all_tests)
  add_custom_target(threading_tests)
  if(all)
    add_dependencies(all_tests ${all})
  endif()
  if(threading)
    add_dependencies(threading_tests ${threading})
  endif()
endfunction()

# natc_fuzz_target(name SOURCES files... DEPS libs... CORPUS dir)
# With clang and -DNATC_FUZZ=ON: a libFuzzer binary (run it by hand or with scripts/fuzz.sh).
# Otherwise: a replay binary, and a test that replays the corpus under the current sanitizers.
function(natc_fuzz_target name)
  cmake_parse_arguments(A "" "CORPUS" "SOURCES;DEPS" ${ARGN})
  if(NATC_FUZZ)
    add_executable(${name} ${A_SOURCES})
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  else()
    add_executable(${name} ${A_SOURCES} ${PROJECT_SOURCE_DIR}/fuzz/common/StandaloneMain.cpp)
    if(NATC_BUILD_TESTS)
      add_test(NAME ${name}_corpus COMMAND ${name} ${CMAKE_CURRENT_SOURCE_DIR}/${A_CORPUS})
      set_tests_properties(${name}_corpus PROPERTIES LABELS unit)
      set_property(GLOBAL APPEND PROPERTY NATC_ALL_TESTS ${name})
    endif()
  endif()
  natc_warnings(${name})
  target_link_libraries(${name} PRIVATE ${A_DEPS})
endfunction()
