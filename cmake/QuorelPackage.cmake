# SPDX-License-Identifier: MIT
# What an embedding project includes, as <quorel/NAME.h>, the same from a build tree and installed: the headers that are meant for
# it, and behind these the two that they stand on. Each is made from the one in the source with its includes in that form.
set(headers core/signal_path core/settings_record settings/settings_handler settings/control_block client/control_client
  client/settings_fields platform/lock platform/sharing c_interface/quorel)
foreach(header ${headers})
  get_filename_component(name ${header} NAME)
  file(READ ${header}.h text)
  string(REGEX REPLACE "#include \"[a-z]+/([a-z_]+\\.h)\"" "#include <quorel/\\1>" text "${text}")
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/include/quorel/${name}.h CONTENT "${text}" @ONLY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header}.h)
endforeach()
target_include_directories(quorel INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include> $<INSTALL_INTERFACE:include>)
