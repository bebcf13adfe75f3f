# The names that a Visual C++ host links against, printed by a compiler that mangles as it does, are
# the ones in the export definitions.
#   CLANG, SOURCE, SCRATCH
include("${CMAKE_CURRENT_LIST_DIR}/../../consume/Common.cmake")

set(assembly "${SCRATCH}/visual_cpp_host.s")
file(MAKE_DIRECTORY "${SCRATCH}")
run("${CLANG}" --target=x86_64-pc-windows-msvc -std=c++17 -ffreestanding -O1 -Wall -Wextra -Werror
  -I "${CMAKE_CURRENT_LIST_DIR}/visual_cpp_host/headers" -I "${SOURCE}"
  -S "${CMAKE_CURRENT_LIST_DIR}/visual_cpp_host/main.cpp" -o "${assembly}")
file(READ "${assembly}" text)
string(REGEX MATCHALL "__imp_[^\"]+" linked "${text}")
list(TRANSFORM linked REPLACE "^__imp_" "")
list(REMOVE_DUPLICATES linked)
list(SORT linked)

file(READ "${SOURCE}/alg_factory/exports.def" definitions)
string(REGEX MATCHALL "\"[^\"]+\"=" defined "${definitions}")
list(TRANSFORM defined REPLACE "[\"=]" "")
list(SORT defined)
expect_same("Visual C++ names (expected: clang's, found: exports.def)" linked defined)
list(LENGTH linked count)
if(NOT count EQUAL 2)
  fail("${count} names, expected 2: ${linked}")
endif()
