# The code of docs/c.md is the example's, to the letter.
#   SOURCE
include("${CMAKE_CURRENT_LIST_DIR}/../../consume/Common.cmake")

file(READ "${SOURCE}/examples/c_host/main.c" example)
file(READ "${SOURCE}/docs/c.md" page)
string(FIND "${page}" "```c\n${example}```\n" position)
if(position EQUAL -1)
  fail("docs/c.md: expected examples/c_host/main.c in it, found another text")
endif()
