# A host for Visual C++'s interface and with its linker's import library, found, built and linked
# with the installed tree, then run.
#   BUILD, SCRATCH, GENERATOR, MAKE_PROGRAM, CLANG, WINE
include("${CMAKE_CURRENT_LIST_DIR}/../../consume/Common.cmake")

file(REMOVE_RECURSE "${SCRATCH}")
set(prefix "${SCRATCH}/installed")
run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${prefix}")
file(COPY "${CMAKE_CURRENT_LIST_DIR}/visual_cpp_host/" DESTINATION "${SCRATCH}/source")
# No run-time library is here that CMake's trial program could link: compile it only.
run("${CMAKE_COMMAND}" -S "${SCRATCH}/source" -B "${SCRATCH}/build" -G "${GENERATOR}"
  "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}" -DCMAKE_SYSTEM_NAME=Windows
  "-DCMAKE_CXX_COMPILER=${CLANG}" -DCMAKE_CXX_COMPILER_TARGET=x86_64-pc-windows-msvc
  -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY -DCMAKE_CXX_STANDARD_LIBRARIES=
  -DCMAKE_BUILD_TYPE=Release
  "-DCMAKE_PREFIX_PATH=${prefix}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
run("${CMAKE_COMMAND}" --build "${SCRATCH}/build")

file(GLOB library "${prefix}/bin/*.dll")
file(COPY ${library} DESTINATION "${SCRATCH}/build")
run(${WINE} "${SCRATCH}/build/visual_cpp_host.exe")
