# A project that knows the installed tree only finds the package, links it and runs.
#   PREFIX, SCRATCH, GENERATOR, MAKE_PROGRAM, COMPILER, LAUNCHER, FLAGS, BUILD_TYPE
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

build_and_run(find_package "-DCMAKE_PREFIX_PATH=${PREFIX}" "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}"
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)

string(FIND "${command}" "${PREFIX}/include" position)
if(position EQUAL -1)
  fail("the installed headers are not on the include path: ${command}")
endif()
string(REGEX MATCHALL "(-I|-isystem) ?[^ ]+" folders "${command}")
foreach(folder IN LISTS folders)
  string(REGEX REPLACE "^(-I|-isystem) ?" "" folder "${folder}")
  if(NOT folder STREQUAL "${PREFIX}/include")
    fail("${folder} is on the consumer's include path")
  endif()
endforeach()
