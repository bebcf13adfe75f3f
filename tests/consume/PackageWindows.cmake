# The .zip for Windows: cross-built, unpacked and used by hosts that know nothing else: one linked,
# one that loads the library itself. They run where wine is installed.
#   SCRATCH, SOURCE, GENERATOR, MAKE_PROGRAM, LAUNCHER, VERSION, MINGW, WINE
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

set(build "${SCRATCH}/build")
file(REMOVE_RECURSE "${SCRATCH}")
run("${CMAKE_COMMAND}" -S "${SOURCE}" -B "${build}" -G "${GENERATOR}"
  "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}" "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}"
  "-DCMAKE_TOOLCHAIN_FILE=${SOURCE}/cmake/toolchains/windows-x86_64.cmake"
  -DCMAKE_BUILD_TYPE=Release -DALG_FACTORY_DEVELOPER=OFF -DALG_FACTORY_C=ON
  -DALG_FACTORY_HARDEN=ON)
run("${CMAKE_COMMAND}" --build "${build}")
get_filename_component(cmake_folder "${CMAKE_COMMAND}" DIRECTORY)
run("${CMAKE_COMMAND}" -E chdir "${build}" "${cmake_folder}/cpack")

set(name "alg-factory-${VERSION}-windows-x86_64")
file(ARCHIVE_EXTRACT INPUT "${build}/packages/${name}.zip" DESTINATION "${SCRATCH}")
set(root "${SCRATCH}/${name}")
file(GLOB_RECURSE found RELATIVE "${root}/include" "${root}/include/*")
list(SORT found)
read_list("${CMAKE_CURRENT_LIST_DIR}/installed_headers.txt" expected)
list(FILTER expected INCLUDE REGEX "^alg_factory(/|_c)")  # the recorder is not there yet
expect_same("headers in the .zip" expected found)
file(GLOB found RELATIVE "${root}/lib" "${root}/lib/*.a" "${root}/lib/*.lib")
set(expected alg_factory.lib alg_factory_c.lib libalg_factory.dll.a libalg_factory_c.dll.a)
expect_same("import libraries in the .zip" expected found)

set(SCRATCH "${SCRATCH}/host")
file(COPY "${CMAKE_CURRENT_LIST_DIR}/host.cpp"
  "${CMAKE_CURRENT_LIST_DIR}/find_package/CMakeLists.txt" DESTINATION "${SCRATCH}")
run("${CMAKE_COMMAND}" -S "${SCRATCH}" -B "${SCRATCH}/build" -G "${GENERATOR}"
  "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}" -DCMAKE_SYSTEM_NAME=Windows
  "-DCMAKE_CXX_COMPILER=${MINGW}" -DCMAKE_EXE_LINKER_FLAGS=-static
  "-DCMAKE_PREFIX_PATH=${root}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
run("${CMAKE_COMMAND}" --build "${SCRATCH}/build")
string(REGEX REPLACE "g\\+\\+" "gcc" mingw_c "${MINGW}")
run("${mingw_c}" -std=c11 -pedantic -Wall -Wextra -Werror -I "${root}/include"
  "${SOURCE}/examples/c_host/main.c" -L "${root}/lib" -lalg_factory_c
  -o "${SCRATCH}/build/c_host.exe")
run("${MINGW}" -std=c++17 -Wall -Wextra -Werror -static -I "${root}/include"
  "${SOURCE}/examples/load_at_run_time/main.cpp" -o "${SCRATCH}/build/load_at_run_time.exe")

file(GLOB library "${root}/bin/*.dll")
file(COPY ${library} DESTINATION "${SCRATCH}/build")
if(WINE)
  set(under_wine "${SOURCE}/cmake/toolchains/run-under-wine" "${WINE}" "${SCRATCH}/wine")
  run(${under_wine} "${SCRATCH}/build/consumer.exe")
  message("${output}")
  run(${under_wine} "${SCRATCH}/build/c_host.exe")
  if(NOT output MATCHES "query: object 0 at -50.0 100.0 -995.8 mm")
    fail("the host in C said:\n${output}")
  endif()
  run(${under_wine} "${SCRATCH}/build/load_at_run_time.exe" libalg_factory.dll)
  message("${output}")
else()
  message("wine is missing: the hosts were built, not run")
endif()
