# SPDX-License-Identifier: MIT
# What an embedding project includes, as <quorel/NAME.h>, the same from a build tree and installed: the headers that are meant for
# it, and behind these the two that they stand on. Each is made from the one in the source with its includes in that form.
set(headers core/signal_path core/settings_record settings/settings_handler settings/control_block client/control_client
  client/settings_fields platform/lock platform/sharing)
foreach(header ${headers})
  get_filename_component(name ${header} NAME)
  file(READ ${header}.h text)
  string(REGEX REPLACE "#include \"[a-z]+/([a-z_]+\\.h)\"" "#include <quorel/\\1>" text "${text}")
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/include/quorel/${name}.h CONTENT "${text}" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header}.h)
endforeach()
target_include_directories(quorel INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include> $<INSTALL_INTERFACE:include>)

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CROSSCOMPILING)
  include(CMakePackageConfigHelpers)
  include(GNUInstallDirs)
  set(package ${CMAKE_INSTALL_LIBDIR}/cmake/quorel)
  install(TARGETS quorel quorel_platform quorel_core quorel_stages quorel_speaker_tables quorel_speaker quorel_microphone_tables
    quorel_microphone quorel_settings quorel_client EXPORT quorel COMPONENT library)
  install(DIRECTORY ${PROJECT_BINARY_DIR}/include/quorel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT library)
  install(EXPORT quorel NAMESPACE quorel:: DESTINATION ${package} COMPONENT library)
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/quorelConfig.cmake @ONLY CONTENT
"include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(\${CMAKE_CURRENT_LIST_DIR}/quorel.cmake)
")
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/quorelConfigVersion.cmake COMPATIBILITY SameMinorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/quorelConfig.cmake ${PROJECT_BINARY_DIR}/quorelConfigVersion.cmake
    DESTINATION ${package} COMPONENT library)
endif()
