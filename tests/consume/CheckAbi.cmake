# A host compiled against the recorded interface runs with this library.
#   ABIDW, ABIDIFF, PREFIX, LIBRARY, RECORD, CURRENT, TYPES, SCOPE, IGNORED
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

# Records hold only what crosses the interface; two of them are compared.
run("${CMAKE_COMMAND}" "-DABIDW=${ABIDW}" "-DPREFIX=${PREFIX}" "-DLIBRARY=${LIBRARY}"
  "-DRECORD=${CURRENT}" "-DSCOPE=${SCOPE}" "-DIGNORED=${IGNORED}"
  -P "${CMAKE_CURRENT_LIST_DIR}/RecordAbi.cmake")
foreach(record IN ITEMS "${RECORD}" "${CURRENT}")
  file(READ "${record}" text)
  foreach(name IN LISTS TYPES)
    if(NOT text MATCHES "class-decl name='${name}' size-in-bits=")
      fail("${record} does not describe ${name}: nothing would be compared")
    endif()
  endforeach()
endforeach()

# What is new harms nobody; everything else is a change that a host would notice.
set(beyond "")
if(SCOPE STREQUAL "--load-all-types")
  set(beyond --non-reachable-types)
endif()
run("${ABIDIFF}" ${beyond} --no-added-syms "${RECORD}" "${CURRENT}")
