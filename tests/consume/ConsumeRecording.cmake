# A host that knows the installed tree only records its session: as a CMake project, then by one
# command line.
#   PREFIX, LIBDIR, SCRATCH, GENERATOR, MAKE_PROGRAM, COMPILER, LAUNCHER, FLAGS, BUILD_TYPE,
#   PKG_CONFIG
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

set(host "${CMAKE_CURRENT_LIST_DIR}/recording_host.cpp")
build_and_run(recording "${host}" "-DCMAKE_PREFIX_PATH=${PREFIX}" "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}"
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)

if(PKG_CONFIG AND NOT FLAGS MATCHES "-fsanitize")
  # Beside the system's, which has SQLite's.
  set(ENV{PKG_CONFIG_PATH} "${PREFIX}/${LIBDIR}/pkgconfig")
  set(ENV{PKG_CONFIG_ALLOW_SYSTEM_CFLAGS} 1)
  set(ENV{PKG_CONFIG_ALLOW_SYSTEM_LIBS} 1)
  run("${PKG_CONFIG}" --cflags --libs alg_factory-recording)
  string(STRIP "${output}" output)
  separate_arguments(flags UNIX_COMMAND "${output}")
  set(SCRATCH "${SCRATCH}/pkg-config")
  compile_plainly("${SCRATCH}/consumer" flags "${host}")
  set(ENV{LD_LIBRARY_PATH} "${PREFIX}/${LIBDIR}")
  run("${CMAKE_COMMAND}" -E chdir "${SCRATCH}" "${SCRATCH}/consumer")
  message("${output}")
endif()
