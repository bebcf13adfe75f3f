# A project that fetches the library as an archive: what the library is made of, and nothing else.
#   SCRATCH, SOURCE, GENERATOR, MAKE_PROGRAM, COMPILER, LAUNCHER, FLAGS
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

set(archive "${SCRATCH}-archive/alg_factory.tar.gz")
file(REMOVE_RECURSE "${SCRATCH}-archive")
file(MAKE_DIRECTORY "${SCRATCH}-archive")
read_list("${CMAKE_CURRENT_LIST_DIR}/library_sources.txt" sources)
execute_process(
  COMMAND "${CMAKE_COMMAND}" -E tar czf "${archive}" ${sources}
  WORKING_DIRECTORY "${SOURCE}" COMMAND_ERROR_IS_FATAL ANY)

build_and_run(fetch_content "${CMAKE_CURRENT_LIST_DIR}/host.cpp"
  "-DALG_FACTORY_ARCHIVE=${archive}")
if(command MATCHES "eigen|EIGEN|-ffp-contract|-Wall")
  fail("the library's options reached its host: ${command}")
endif()
