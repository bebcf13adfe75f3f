# The README's compile line builds a host that runs as it stands, without the library's folder in the
# environment. The prefix is another one than the README's.
#   SOURCE, PREFIX, SCRATCH
include("${CMAKE_CURRENT_LIST_DIR}/../consume/Common.cmake")

file(READ "${SOURCE}/README.md" readme)
if(NOT readme MATCHES "<!-- compile line: begin -->\n```sh\n([^`]+)```\n<!-- compile line: end -->")
  fail("README.md: expected a compile line between its two comments")
endif()
string(REPLACE "/opt/alg_factory" "${PREFIX}" line "${CMAKE_MATCH_1}")

file(REMOVE_RECURSE "${SCRATCH}")
file(MAKE_DIRECTORY "${SCRATCH}")
file(COPY_FILE "${SOURCE}/examples/minimal_host/main.cpp" "${SCRATCH}/my_host.cpp")
unset(ENV{LD_LIBRARY_PATH})
run("${CMAKE_COMMAND}" -E chdir "${SCRATCH}" sh -euc "${line}")
if(NOT output MATCHES "query: object 0 at")
  fail("the host said:\n${output}")
endif()
