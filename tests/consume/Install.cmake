# Installs the library for the other tests of this folder, and moves the tree afterwards: what is
# installed must not remember where it was put first.
#   BUILD, PREFIX, SOURCE
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

file(REMOVE_RECURSE "${PREFIX}" "${PREFIX}-first")
run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}-first")
file(RENAME "${PREFIX}-first" "${PREFIX}")

file(GLOB_RECURSE found RELATIVE "${PREFIX}/include" "${PREFIX}/include/*")
list(SORT found)
read_list("${CMAKE_CURRENT_LIST_DIR}/installed_headers.txt" expected)
expect_same("installed headers" expected found)

file(GLOB_RECURSE package_files "${PREFIX}/*.cmake" "${PREFIX}/*.pc")
if(NOT package_files)
  fail("no package files below ${PREFIX}")
endif()
foreach(package_file IN LISTS package_files)
  file(READ "${package_file}" content)
  foreach(path IN ITEMS "${SOURCE}" "${BUILD}" "${PREFIX}-first")
    string(FIND "${content}" "${path}" position)
    if(NOT position EQUAL -1)
      fail("${package_file} names ${path}")
    endif()
  endforeach()
endforeach()
