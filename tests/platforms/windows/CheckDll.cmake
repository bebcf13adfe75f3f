# The DLL needs nothing but Windows, and exports the factory and nothing else.
#   OBJDUMP, LIBRARY
include("${CMAKE_CURRENT_LIST_DIR}/../../consume/Common.cmake")

run("${OBJDUMP}" -p "${LIBRARY}")
string(REGEX MATCHALL "DLL Name: [^\n]+" found_imports "${output}")
list(TRANSFORM found_imports REPLACE "DLL Name: " "")
list(SORT found_imports)
read_list("${CMAKE_CURRENT_LIST_DIR}/imports.txt" expected_imports)
expect_same("imported DLLs of ${LIBRARY}" expected_imports found_imports)

# Everything behind this headline is a table of lines "[ordinal] name", up to an empty line.
string(FIND "${output}" "[Ordinal/Name Pointer] Table" start)
if(start EQUAL -1)
  fail("no export table in ${LIBRARY}")
endif()
string(SUBSTRING "${output}" ${start} -1 table)
string(FIND "${table}" "\n\n" end)
string(SUBSTRING "${table}" 0 ${end} table)
string(REPLACE "[" "<" table "${table}")  # square brackets would join list entries
string(REPLACE "]" ">" table "${table}")
string(REGEX MATCHALL "< *[0-9]+> [^\n]+" found_exports "${table}")
list(TRANSFORM found_exports REPLACE "< *[0-9]+> " "")
list(SORT found_exports)
read_list("${CMAKE_CURRENT_LIST_DIR}/exports.txt" expected_exports)
expect_same("exported symbols of ${LIBRARY}" expected_exports found_exports)
