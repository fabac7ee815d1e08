# SPDX-License-Identifier: MIT
include(GoogleTest)

# Compiling most tests costs more than running them, so they are optimised lightly; `heavy_tests` of a folder names the programs
# that are not.
set(light_optimisation $<$<CONFIG:Release>:-O1>)
if(sanitized)
  set(light_optimisation -O0)
endif()
# Two watches over a test's own code would cost a third of its compiling: a null pointer ends it without them, and the libraries'
# code has them.
set(unwatched)
if(CMAKE_CXX_FLAGS MATCHES sanitize=address,undefined)
  set(unwatched -fno-sanitize=null,alignment)
endif()

# What nearly every test includes, parsed once. Programs take it compiled for programs, which a library would not be. Without any
# optimisation it is another than with some.
function(quorel_test_headers name)
  add_library(${name} STATIC ${PROJECT_SOURCE_DIR}/tests/support/headers.cpp)
  quorel_target(${name})
  if(NOT WIN32)
    set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
    target_compile_options(${name} PRIVATE -fPIE)
  endif()
  target_compile_options(${name} PRIVATE ${unwatched} ${ARGN})
  target_link_libraries(${name} PUBLIC GTest::gmock)
  target_precompile_headers(${name} PRIVATE
    <gmock/gmock.h> <gtest/gtest.h> <algorithm> <array> <chrono> <cmath> <filesystem> <memory> <random> <string> <thread> <vector>)
endfunction()
quorel_test_headers(quorel_test_headers)
set(light_headers quorel_test_headers)
if(sanitized)
  quorel_test_headers(quorel_light_headers ${light_optimisation})
  set(light_headers quorel_light_headers)
endif()

# quorel_test(<source> <libraries>...): one test program. Each of its tests is a CTest test, except where each start of a program
# is slow (under Wine) and with QUOREL_WHOLE_PROGRAMS: there the program is one. Tests that are named in `long_tests`, as
# program.Suite.Name with * for any text, bear the label `long`; QUOREL_WHOLE_PROGRAMS makes one test of a program's.
function(quorel_test source)
  get_filename_component(name ${source} NAME_WE)
  get_filename_component(room ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  add_executable(${name} ${source})
  quorel_target(${name})
  target_compile_options(${name} PRIVATE ${unwatched})
  target_link_libraries(${name} PRIVATE ${ARGN} GTest::gmock GTest::gtest_main)
  if(name IN_LIST heavy_tests)
    target_precompile_headers(${name} REUSE_FROM quorel_test_headers)
  else()
    target_precompile_headers(${name} REUSE_FROM ${light_headers})
    target_compile_options(${name} PRIVATE ${light_optimisation})
  endif()

  set(label)
  set(long_label LABELS long)
  if(room IN_LIST threaded OR name IN_LIST threaded)
    set(label LABELS threads)
    set(long_label LABELS long_threads)
    add_dependencies(threaded_tests ${name})
  elseif(room IN_LIST signal)
    set(label LABELS signal)
    add_dependencies(signal_tests ${name})
  endif()
  set(long ${long_tests})
  list(FILTER long INCLUDE REGEX "^${name}\\.")
  list(TRANSFORM long REPLACE "^${name}\\." "")
  list(JOIN long : long)
  set(quick *)
  if(long)
    set(quick *-${long})
  endif()
  # At -O1, which the sanitizers' presets have as well, gcc 12 takes the appending of strings for writing beyond their ends.
  target_compile_options(${name} PRIVATE "$<$<CXX_COMPILER_ID:GNU>:-Wno-array-bounds;-Wno-stringop-overflow;-Wno-stringop-overread>")

  if(WIN32)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED wine_prefix ${label})
  elseif(QUOREL_WHOLE_PROGRAMS)
    add_test(NAME ${name} COMMAND ${name} --gtest_filter=${quick})
    if(label)
      set_tests_properties(${name} PROPERTIES ${label})
    endif()
    if(long)
      add_test(NAME ${name}_long COMMAND ${name} --gtest_filter=${long})
      set_tests_properties(${name}_long PROPERTIES ${long_label})
    endif()
  else()
    set(discover TEST_PREFIX ${name}. DISCOVERY_TIMEOUT 60)
    gtest_discover_tests(${name} ${discover} TEST_FILTER "${quick}" PROPERTIES ${label})
    if(long)
      gtest_discover_tests(${name} ${discover} TEST_FILTER "${long}" TEST_LIST ${name}_long PROPERTIES ${long_label})
    endif()
  endif()
endfunction()

# quorel_tests(<libraries>...): every *_test.cpp of this folder is a test program, linked to the libraries.
function(quorel_tests)
  file(GLOB sources CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} *_test.cpp)
  foreach(source ${sources})
    quorel_test(${source} ${ARGN})
  endforeach()
endfunction()

# quorel_stand_in(<library> <source>): operations that a test program has in place of the system's. A program takes from an archive
# what it has not met yet, so it meets the compiler's library before ours: clang leaves copies of that library's templates in ours,
# and with one of these the system's operations would come as well.
function(quorel_stand_in library source)
  add_library(${library} OBJECT ${source})
  quorel_target(${library})
  target_link_options(${library} INTERFACE $<$<NOT:$<BOOL:${WIN32}>>:-lstdc++>)
endfunction()

# quorel_one_at_a_time(<tests>...): on Windows there is one set of the named objects and one registry, so never two of these
# run at once.
function(quorel_one_at_a_time)
  if(WIN32)
    set_tests_properties(${ARGN} PROPERTIES RESOURCE_LOCK settings)
  endif()
endfunction()
