# A host compiled against the recorded interface runs with this library.
#   ABIDW, ABIDIFF, PREFIX, LIBRARY, RECORD, CURRENT
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

# Records hold only what crosses the interface; two of them are compared.
run("${CMAKE_COMMAND}" "-DABIDW=${ABIDW}" "-DPREFIX=${PREFIX}" "-DLIBRARY=${LIBRARY}"
  "-DRECORD=${CURRENT}" -P "${CMAKE_CURRENT_LIST_DIR}/RecordAbi.cmake")
foreach(record IN ITEMS "${RECORD}" "${CURRENT}")
  file(READ "${record}" text)
  foreach(name IN ITEMS AlgBase AlgFactory DataSink LogSink HeadingAnswer InertialRecord
      OrientationSample PoseAnswer ResultBlock StereoCalibration TrackedPoint)
    if(NOT text MATCHES "class-decl name='${name}' size-in-bits=")
      fail("${record} does not describe ${name}: nothing would be compared")
    endif()
  endforeach()
endforeach()

# What is new harms nobody; everything else is a change that a host would notice.
run("${ABIDIFF}" --non-reachable-types --no-added-syms "${RECORD}" "${CURRENT}")
