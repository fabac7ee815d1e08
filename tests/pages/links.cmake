# SPDX-License-Identifier: MIT
# cmake -D SOURCE=<project> -P links.cmake: the README links every page, and no page links what isn't there.
file(READ ${SOURCE}/README.md readme)
file(GLOB pages RELATIVE ${SOURCE} ${SOURCE}/*.md ${SOURCE}/docs/*.md ${SOURCE}/docs/decisions/*.md)
foreach(page ${pages})
  if(NOT page MATCHES "^README|decisions/2" AND NOT readme MATCHES "\\]\\(${page}\\)")
    message(SEND_ERROR "The README doesn't link ${page}")
  endif()
  file(READ ${SOURCE}/${page} text)
  string(REPLACE "](" "@(" text "${text}") # brackets would hold a list together
  string(REGEX MATCHALL "@\\([^)#:]+[)#]" links "${text}")
  get_filename_component(folder ${SOURCE}/${page} DIRECTORY)
  foreach(link ${links})
    string(REGEX REPLACE "^@.(.*).$" "\\1" link "${link}")
    if(NOT EXISTS ${folder}/${link})
      message(SEND_ERROR "${page} links ${link}, which isn't there")
    endif()
  endforeach()
endforeach()
