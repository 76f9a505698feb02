# How every target of this project is compiled: language level, warnings, hardening, sanitizers.

get_filename_component(KAVREL_ROOT ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()  # compiled so, programs are linked so too

# Programs and libraries find ours beside them, in the build tree and wherever they are installed.
set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")

# Nobody but their owner may write to the directories that an installation makes, whatever the umask.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "" FORCE)
endif()

add_library(kavrel_build_options INTERFACE)
target_compile_options(kavrel_build_options INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
  $<$<BOOL:${KAVREL_WERROR}>:-Werror>)
target_link_options(kavrel_build_options INTERFACE -Wl,-z,relro -Wl,-z,now)
target_compile_definitions(kavrel_build_options INTERFACE _GNU_SOURCE)

if(KAVREL_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  add_link_options(-fsanitize=fuzzer-no-link)
endif()

if(KAVREL_SANITIZE)
  list(JOIN KAVREL_SANITIZE "," sanitizers)
  add_compile_options(-fsanitize=${sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${sanitizers})
  # With this sanitizer clang++ links operators new and delete that a test's own cannot replace; clang
  # does not.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND "thread" IN_LIST KAVREL_SANITIZE)
    add_link_options(--driver-mode=gcc)
    set(CMAKE_CXX_STANDARD_LIBRARIES "-lstdc++ -lm")
  endif()
else()
  target_compile_options(kavrel_build_options INTERFACE -fstack-protector-strong
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2>)
endif()

# gcc's counters are written when a process ends in the ordinary way: also written, here, by those that
# leave with _exit or abort. In every program and library, since each has counters of its own; the
# program has the list of all.
if(KAVREL_COVERAGE)
  add_library(kavrel_counted_exit OBJECT ${KAVREL_ROOT}/cmake/counted_exit.c)
  target_link_options(kavrel_counted_exit INTERFACE -Wl,--wrap=_exit -Wl,--wrap=abort)
  link_libraries($<BUILD_INTERFACE:kavrel_counted_exit>)
  add_library(kavrel_counter_list OBJECT ${KAVREL_ROOT}/cmake/counter_list.c)
  target_link_options(kavrel_counter_list INTERFACE -Wl,--export-dynamic-symbol=kavrel_counters)
  link_libraries(
    "$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:$<BUILD_INTERFACE:kavrel_counter_list>>")
endif()

# Tests are built to run once or twice: compiled quickly rather than well, with what a stack trace
# needs.
add_library(kavrel_test_options INTERFACE)
target_compile_options(kavrel_test_options INTERFACE -g1 $<$<NOT:$<CONFIG:Debug>>:-O1>)

# With KAVREL_PRECOMPILED_HEADERS tests are compiled after a list of headers that most of them include,
# read once. A program, because its flags have to be a test program's.
function(kavrel_precompiled_headers name)
  if(NOT TARGET kavrel_test_headers)
    file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/test_headers.cpp CONTENT "// Only its headers matter.\n")
    add_executable(kavrel_test_headers ${PROJECT_BINARY_DIR}/test_headers.cpp)
    target_link_libraries(kavrel_test_headers PRIVATE kavrel_build_options kavrel_test_options
      GTest::gmock GTest::gtest_main)
    target_compile_options(kavrel_test_headers PRIVATE -pthread)
    target_precompile_headers(kavrel_test_headers PRIVATE
      <gmock/gmock.h> <gtest/gtest.h> <algorithm> <array> <atomic> <chrono> <condition_variable>
      <filesystem> <fstream> <functional> <map> <memory> <mutex> <optional> <random> <set> <sstream>
      <stdexcept> <string> <string_view> <thread> <utility> <variant> <vector>)
  endif()
  set(c_sources ${ARGN})
  list(FILTER c_sources INCLUDE REGEX "\\.c$")
  set_source_files_properties(${c_sources} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
  target_compile_options(${name} PRIVATE -pthread)  # as many libraries demand
  target_precompile_headers(${name} REUSE_FROM kavrel_test_headers)
endfunction()

# kavrel_test(<name> SOURCES <file>... [LIBRARIES <target>...] [COST <seconds>]): one GoogleTest
# program. Every test case becomes one CTest test, so that they run in parallel; each makes its own
# runtime directory. Tests of the highest cost are started first.
function(kavrel_test name)
  cmake_parse_arguments(ARG "" "COST" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  if(NOT ARG_COST)
    set(ARG_COST 0)
  endif()
  add_executable(${name} ${ARG_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
  target_link_libraries(${name} PRIVATE kavrel_build_options kavrel_test_options ${ARG_LIBRARIES}
    GTest::gmock GTest::gtest_main)
  if(KAVREL_PRECOMPILED_HEADERS)
    kavrel_precompiled_headers(${name} ${ARG_SOURCES})
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
    PROPERTIES TIMEOUT 120 COST ${ARG_COST}
      ENVIRONMENT "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/foreign_leaks.supp:print_suppressions=0"
      ENVIRONMENT_MODIFICATION "TSAN_OPTIONS=set:suppressions=${PROJECT_SOURCE_DIR}/tests/support/foreign_races.supp:print_suppressions=0"
      LABELS "${ARG_LABELS}")
endfunction()
