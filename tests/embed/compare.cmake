# The README's example is the program that is tested.
file(READ ${README} readme)
file(READ ${EXAMPLE} example)
string(FIND "${readme}" "${example}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "README.md shows another program than tests/embed/main.cpp")
endif()
