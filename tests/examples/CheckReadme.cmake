# The README's code is the example's, to the letter.
#   SOURCE
include("${CMAKE_CURRENT_LIST_DIR}/../consume/Common.cmake")

file(READ "${SOURCE}/examples/minimal_host/main.cpp" example)
file(READ "${SOURCE}/README.md" readme)
string(FIND "${readme}" "```cpp\n${example}```\n<!-- minimal_host: end -->" position)
if(position EQUAL -1)
  fail("README.md: the code before <!-- minimal_host: end --> is not examples/minimal_host/main.cpp")
endif()
