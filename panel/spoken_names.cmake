# SPDX-License-Identifier: MIT
# Makes ${CMAKE_CURRENT_BINARY_DIR}/spoken_names.cpp of the files in panel/spoken: their samples, behind the 44 bytes of their
# headers, as numbers.
set(names front_left front_right front_centre low_frequency back_left back_right side_left side_right)
set(arrays)
set(spans)
foreach(name IN LISTS names)
  set(file ${CMAKE_CURRENT_SOURCE_DIR}/spoken/${name}.wav)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
  file(READ ${file} bytes OFFSET 44 HEX)
  string(REGEX REPLACE "(..)(..)" "S(0x\\2\\1)," samples "${bytes}")
  string(APPEND arrays "constexpr std::int16_t ${name}[] = {${samples}};\n")
  list(APPEND spans ${name})
endforeach()
list(JOIN spans ", " spans)
file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/spoken_names.cpp @ONLY CONTENT [[
// SPDX-License-Identifier: MIT
#include "panel/spoken_names.h"

#define S(word) static_cast<std::int16_t>(word)

namespace quorel {

namespace {

@arrays@
} // namespace

const std::array<std::span<const std::int16_t>, 8> spokenNames = {@spans@};

} // namespace quorel
]])
