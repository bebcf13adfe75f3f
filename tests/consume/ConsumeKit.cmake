# A host that knows the installed tree only, and links what of the kit is installed.
#   PREFIX, SCRATCH, GENERATOR, MAKE_PROGRAM, COMPILER, LAUNCHER, FLAGS, BUILD_TYPE
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

build_and_run(kit "${CMAKE_CURRENT_LIST_DIR}/kit_host.cpp" "-DCMAKE_PREFIX_PATH=${PREFIX}"
  "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
