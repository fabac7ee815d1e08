# SPDX-License-Identifier: MIT
# What `cmake --install` puts where: the component `library` (both forms of the library, headers, how CMake and pkg-config find
# them) and the component `tools` (every program of ours, the unit of the live host, pages and completions).
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# The programs, as the folders that make them know.
set(quorel_programs)
foreach(folder tools live panel)
  if(IS_DIRECTORY ${PROJECT_BINARY_DIR}/${folder})
    get_property(targets DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} PROPERTY BUILDSYSTEM_TARGETS)
    list(FILTER targets INCLUDE REGEX ^quorel-)
    list(APPEND quorel_programs ${targets})
  endif()
endforeach()

if(CMAKE_SYSTEM_NAME STREQUAL Linux)
  set(package ${CMAKE_INSTALL_LIBDIR}/cmake/quorel)
  install(TARGETS quorel_archive quorel_shared EXPORT quorel COMPONENT library)
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

  # The .pc file finds the rest from where it lies itself, so that the tree can be moved.
  file(RELATIVE_PATH prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/quorel.pc @ONLY CONTENT
"prefix=\${pcfiledir}/${prefix}
libdir=\${prefix}/${CMAKE_INSTALL_LIBDIR}
includedir=\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}

Name: quorel
Description: 7.1 sound for headphones, and a clean microphone
Version: ${PROJECT_VERSION}
Libs: -L\${libdir} -lquorel
Libs.private: -lstdc++ -lm -lpthread -ldl
Cflags: -I\${includedir}
")
  install(FILES ${PROJECT_BINARY_DIR}/quorel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT library)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/NOTICE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT library)

  if(quorel_programs)
    install(TARGETS ${quorel_programs} COMPONENT tools)
  endif()

  # The manual pages and completions, from what each program says of its options.
  find_program(QUOREL_SCDOC scdoc)
  find_package(Python3 COMPONENTS Interpreter)
  if(QUOREL_SCDOC AND Python3_FOUND)
    set(pages ${PROJECT_BINARY_DIR}/pages)
    set(made)
    foreach(program ${quorel_programs})
      set(files ${pages}/${program}.1 ${pages}/${program}.bash ${pages}/${program}.zsh ${pages}/${program}.fish)
      add_custom_command(OUTPUT ${files} VERBATIM
        COMMAND sh ${PROJECT_SOURCE_DIR}/packaging/pages.sh $<TARGET_FILE:${program}> ${PROJECT_VERSION} ${pages}
        DEPENDS ${program} ${PROJECT_SOURCE_DIR}/packaging/pages.py ${PROJECT_SOURCE_DIR}/packaging/pages.sh)
      list(APPEND made ${files})
      install(FILES ${pages}/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
      set(share ${CMAKE_INSTALL_DATADIR})
      install(FILES ${pages}/${program}.bash DESTINATION ${share}/bash-completion/completions RENAME ${program} COMPONENT tools)
      install(FILES ${pages}/${program}.zsh DESTINATION ${share}/zsh/vendor-completions RENAME _${program} COMPONENT tools)
      install(FILES ${pages}/${program}.fish DESTINATION ${share}/fish/vendor_completions.d COMPONENT tools)
    endforeach()
    add_custom_target(program_pages ALL DEPENDS ${made})
  endif()
  if(TARGET quorel-panel)
    set(share ${CMAKE_INSTALL_DATADIR})
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/quorel-panel.desktop DESTINATION ${share}/applications COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/quorel-panel.svg DESTINATION ${share}/icons/hicolor/scalable/apps COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/org.quorel.panel.metainfo.xml DESTINATION ${share}/metainfo COMPONENT tools)
  endif()
  if(TARGET quorel-live)
    file(READ ${PROJECT_SOURCE_DIR}/packaging/quorel-live.service unit)
    string(REPLACE /usr/bin/ ${CMAKE_INSTALL_FULL_BINDIR}/ unit "${unit}")
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/quorel-live.service CONTENT "${unit}" @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/quorel-live.service DESTINATION lib/systemd/user COMPONENT tools)
    # Not where every user's desktop would start it: whoever has no systemd copies it there.
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/quorel-live.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/quorel/autostart
      COMPONENT tools)
    # Hosts of plug-ins look into lib/lv2 alone.
    install(DIRECTORY ${PROJECT_BINARY_DIR}/live/lv2/ DESTINATION lib/lv2 USE_SOURCE_PERMISSIONS COMPONENT tools)
  endif()
endif()
