include(GoogleTest)

# quorel_test(<source> <libraries>...): one test program. Natively each of its tests is a CTest test; a cross-built program is
# one CTest test, since each start under Wine is slow.
function(quorel_test source)
  get_filename_component(name ${source} NAME_WE)
  get_filename_component(room ${CMAKE_CURRENT_SOURCE_DIR} NAME)
  add_executable(${name} ${source})
  quorel_target(${name})
  target_link_libraries(${name} PRIVATE ${ARGN} GTest::gmock GTest::gtest_main)
  set(label)
  if(room IN_LIST threaded OR name IN_LIST threaded)
    set(label LABELS threads)
    add_dependencies(threaded_tests ${name})
  endif()
  if(CMAKE_CROSSCOMPILING)
    add_test(NAME ${name} COMMAND ${name})
    set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED wine_prefix ${label})
  else()
    gtest_discover_tests(${name} TEST_PREFIX ${name}. DISCOVERY_TIMEOUT 60 PROPERTIES ${label})
  endif()
endfunction()

# quorel_tests(<libraries>...): every *_test.cpp of this folder is a test program, linked to the libraries.
function(quorel_tests)
  file(GLOB sources CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} *_test.cpp)
  foreach(source ${sources})
    quorel_test(${source} ${ARGN})
  endforeach()
endfunction()

# quorel_one_at_a_time(<tests>...): on Windows there is one set of the named objects and one registry, so never two of these
# run at once.
function(quorel_one_at_a_time)
  if(WIN32)
    set_tests_properties(${ARGN} PROPERTIES RESOURCE_LOCK settings)
  endif()
endfunction()
