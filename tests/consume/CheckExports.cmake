# The dynamic symbol table holds the factory and what a host needs, nothing else.
#   NM, LIBRARY
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

run("${NM}" -D --defined-only -C "${LIBRARY}")
string(REGEX REPLACE "\n$" "" output "${output}")
string(REPLACE "\n" ";" lines "${output}")
set(found "")
foreach(line IN LISTS lines)
  string(REGEX REPLACE "^[0-9a-f]* +" "" symbol "${line}")
  list(APPEND found "${symbol}")
endforeach()
list(SORT found)
read_list("${CMAKE_CURRENT_LIST_DIR}/exported_symbols.txt" expected)
expect_same("exported symbols of ${LIBRARY}" expected found)
