# A project that knows the installed tree only finds the package, links it and runs.
#   PREFIX, SCRATCH, GENERATOR, MAKE_PROGRAM, COMPILER, LAUNCHER, FLAGS, BUILD_TYPE
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

build_and_run(find_package "${CMAKE_CURRENT_LIST_DIR}/host.cpp"
  "-DCMAKE_PREFIX_PATH=${PREFIX}" "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}"
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)

separate_arguments(words UNIX_COMMAND "${command}")
list(JOIN words "\n" words)
string(REGEX MATCHALL "\n(-I|-isystem)\n?[^\n]+" folders "${words}")
foreach(folder IN LISTS folders)
  string(REGEX REPLACE "^\n(-I|-isystem)\n?" "" folder "${folder}")
  if(NOT folder STREQUAL "${PREFIX}/include")
    fail("${folder} is on the consumer's include path")
  endif()
endforeach()
if(NOT folders)
  fail("the installed headers are not on the include path: ${command}")
endif()
