# Each installed header compiles alone (and twice), strictly, without Eigen on the include path.
#   PREFIX, COMPILER, SCRATCH
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

file(REMOVE_RECURSE "${SCRATCH}")
file(GLOB_RECURSE headers RELATIVE "${PREFIX}/include" "${PREFIX}/include/*.h")
if(NOT headers)
  fail("no headers below ${PREFIX}/include")
endif()
foreach(header IN LISTS headers)
  file(WRITE "${SCRATCH}/alone.cpp" "#include <${header}>\n#include <${header}>\n")
  foreach(standard IN ITEMS c++17 c++20)
    run("${COMPILER}" -std=${standard} -fsyntax-only
      -Wall -Wextra -Wpedantic -Wshadow -Wold-style-cast -Wnon-virtual-dtor -Werror
      -I "${PREFIX}/include" "${SCRATCH}/alone.cpp")
  endforeach()
  # Eigen must not come in from the system's own folders either.
  run("${COMPILER}" -std=c++17 -M -I "${PREFIX}/include" "${SCRATCH}/alone.cpp")
  if(output MATCHES "[Ee]igen")
    fail("${header} includes Eigen:\n${output}")
  endif()
endforeach()
list(LENGTH headers count)
message("${count} headers")
