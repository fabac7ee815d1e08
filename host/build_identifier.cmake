# SPDX-License-Identifier: MIT
# Writes the build identifier GUID into the header OUTPUT; without one it makes one anew, by chance.
if(NOT GUID)
  string(RANDOM LENGTH 64 chance)
  string(UUID GUID NAMESPACE c07d41e6-93af-4e18-b65d-2f8a11c4d903 NAME ${chance} TYPE SHA1)
endif()
if(NOT GUID MATCHES "^[0-9a-f]+-[0-9a-f]+-[0-9a-f]+-[0-9a-f]+-[0-9a-f]+$")
  message(FATAL_ERROR "QUOREL_BUILD_GUID must be a GUID in lower case without braces, not ${GUID}")
endif()
file(WRITE ${OUTPUT} "#define QUOREL_BUILD_GUID \"${GUID}\"\n")
