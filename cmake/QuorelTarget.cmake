# SPDX-License-Identifier: MIT
# quorel_target(<target>): the language, the include root and the warnings that all of our code is compiled with.
# Contraction of a product and a sum into one rounding changes bits, so it is off wherever a result is defined bit by bit;
# the kernel variants alone turn it on for themselves. Nothing of it but the language reaches a project that embeds ours.
function(quorel_target target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  # Clang says nothing of changes of sign, as gcc does not, and of deprecated names, since the library's stable_sort uses one.
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Werror -ffp-contract=off
    $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>
    "$<$<CXX_COMPILER_ID:Clang>:-Wshadow;-Wno-sign-conversion;-Wno-deprecated-declarations>")
  # With a sanitizer gcc holds so much that looking for memory to use again, below so many kB, takes a tenth of its time.
  if(CMAKE_CXX_FLAGS MATCHES sanitize AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(${target} PRIVATE --param=ggc-min-heapsize=1000000)
  endif()
endfunction()

# quorel_header_library(<target> <folder>): a library of the host's that is headers alone, also in a build for another system:
# linked into a folder of its own, nothing else of the host's comes along.
function(quorel_header_library target folder)
  find_path(QUOREL_${folder} ${folder} NO_CMAKE_FIND_ROOT_PATH REQUIRED)
  set(headers ${PROJECT_BINARY_DIR}/headers/${target})
  file(MAKE_DIRECTORY ${headers})
  file(CREATE_LINK ${QUOREL_${folder}}/${folder} ${headers}/${folder} SYMBOLIC)
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE ${headers})
endfunction()

# quorel_light_sources(<sources>...): sources whose time goes into compiling the parsers of command lines and of JSON, of which
# only little runs, and that once. They are optimised lightly, which halves it, and under a sanitizer not at all.
function(quorel_light_sources)
  set(light $<$<CONFIG:Release>:-O1>)
  if(CMAKE_CXX_FLAGS MATCHES sanitize)
    set(light -O0)
  endif()
  set_property(SOURCE ${ARGN} APPEND PROPERTY COMPILE_OPTIONS ${light})
endfunction()
