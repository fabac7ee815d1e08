# SPDX-License-Identifier: MIT
# What makes an attack on a program harder than on plain code, for everything of ours that is released; tests and benchmarks go
# without. Equal sources make equal bytes wherever they lie. The audio thread's share is measured: docs/decisions/2026-11-22-hardening.md.
#
# Of this the linker for Windows knows the protections in host/CMakeLists.txt and no control-flow guard, which gcc has not either,
# nor the mark by which Windows asks for shadow stacks.
if(WIN32)
  # Guard and checked copies stand in a library of the compiler's, which this option brings along, also to tests and benchmarks.
  set(protected_link -fstack-protector-strong)
  add_link_options($<$<CONFIG:Release,RelWithDebInfo>:${protected_link}>)
else()
  set(protected_link -Wl,-z,relro,-z,now,-z,noexecstack)
endif()
set(hardening -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
if(NOT WIN32)
  list(APPEND hardening -fstack-clash-protection)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    # Shadow stacks are asked for; the system's own start-up objects aren't marked, so the linker is told. The same objects lack
    # what indirect-branch tracking needs: for that only our code is ready.
    list(APPEND hardening -fcf-protection=full)
    string(APPEND protected_link ,-z,shstk)
  endif()
endif()

get_property(folders DIRECTORY ${PROJECT_SOURCE_DIR} PROPERTY SUBDIRECTORIES) # so far: what is released
foreach(folder ${folders})
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(type ${target} TYPE)
    if(type MATCHES "INTERFACE_LIBRARY|UTILITY")
      continue()
    endif()
    set(options ${hardening})
    if(folder MATCHES "/(core|stages|microphone)$") # small steps on samples alone, which would pay up to 4.3 % for their guards
      list(APPEND options -fno-stack-protector -fno-stack-clash-protection)
    endif()
    target_compile_options(${target} PRIVATE "$<$<CONFIG:Release,RelWithDebInfo>:${options}>")
    if(type MATCHES "EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY")
      target_link_options(${target} PRIVATE $<$<CONFIG:Release,RelWithDebInfo>:${protected_link}>)
    endif()
  endforeach()
endforeach()
