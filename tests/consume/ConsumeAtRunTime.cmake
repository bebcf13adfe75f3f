# A host that is not linked against the library loads it by its path.
#   PREFIX, LIBDIR, SOURCE, SCRATCH, COMPILER, READELF, SONAME
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

set(flags -I "${PREFIX}/include" -ldl)
compile_plainly("${SCRATCH}/host" flags "${SOURCE}/examples/load_at_run_time/main.cpp")
run("${READELF}" -d "${SCRATCH}/host")
if(output MATCHES "alg_factory")
  fail("the host is linked against the library:\n${output}")
endif()
run("${SCRATCH}/host" "${PREFIX}/${LIBDIR}/${SONAME}")
message("${output}")

execute_process(COMMAND "${SCRATCH}/host" "${PREFIX}/${LIBDIR}/no_such_library.so"
  RESULT_VARIABLE result ERROR_VARIABLE output)
if(NOT result EQUAL 1)
  fail("a missing library ends the host with ${result}: ${output}")
endif()
