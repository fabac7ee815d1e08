# SPDX-License-Identifier: MIT
# The program that a page shows is the one that is tested.
file(READ ${PAGE} page)
file(READ ${EXAMPLE} example)
string(REGEX REPLACE "^// SPDX[^\n]*\n" "" example "${example}") # the page has the licence of all
string(FIND "${page}" "${example}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "${PAGE} shows another program than ${EXAMPLE}")
endif()
