# What the scripts of this folder share. Each is run as `cmake -D... -P script`.

# Ends the script with a text that CMake does not wrap.
function(fail text)
  message(NOTICE "${text}")
  message(FATAL_ERROR "failed")
endfunction()

# Runs a command and sets `output`; on failure ends the script with all that it said.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " command)
    fail("${output}\nresult ${result}: ${command}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

# Reads a list file: one entry a line, '#' starts a comment line.
function(read_list file list_name)
  file(STRINGS "${file}" lines)
  list(FILTER lines EXCLUDE REGEX "^(#|$)")
  list(SORT lines)
  set(${list_name} "${lines}" PARENT_SCOPE)
endfunction()

# Ends the script with the difference, unless the lists of these two names hold the same.
function(expect_same what expected_name found_name)
  set(missing ${${expected_name}})
  set(surplus ${${found_name}})
  list(REMOVE_ITEM missing ${${found_name}})
  list(REMOVE_ITEM surplus ${${expected_name}})
  set(difference "")
  foreach(entry IN LISTS missing)
    string(APPEND difference "\n- ${entry}")
  endforeach()
  foreach(entry IN LISTS surplus)
    string(APPEND difference "\n+ ${entry}")
  endforeach()
  if(difference)
    fail("${what} (- expected, + found):${difference}")
  endif()
endfunction()

# Compiles copies of sources as someone without CMake would, and checks that the library's headers
# came from the installed tree. `flags_name` names a list: what the compiler gets on top.
function(compile_plainly program flags_name)
  file(REMOVE_RECURSE "${SCRATCH}")
  file(COPY ${ARGN} DESTINATION "${SCRATCH}")
  set(copies "")
  foreach(source IN LISTS ARGN)
    get_filename_component(name "${source}" NAME)
    list(APPEND copies "${SCRATCH}/${name}")
  endforeach()
  run("${COMPILER}" -std=c++17 -Wall -Wextra -Wpedantic -Werror -MD -MF "${SCRATCH}/headers.d"
    -o "${program}" ${copies} ${${flags_name}})
  file(READ "${SCRATCH}/headers.d" dependencies)
  string(REPLACE "\\ " "\t" dependencies "${dependencies}")  # blanks within a path
  string(REGEX MATCHALL "[^ \n]+/alg_(factory|kit)/[a-z0-9]+/[A-Za-z0-9]+\\.h" headers "${dependencies}")
  if(NOT headers)
    fail("no header of the library was read:\n${dependencies}")
  endif()
  foreach(header IN LISTS headers)
    string(REPLACE "\t" " " header "${header}")
    get_filename_component(real "${header}" REALPATH)
    string(FIND "${real}" "${PREFIX}/include/" position)
    if(NOT position EQUAL 0)
      fail("${header} is not an installed header")
    endif()
  endforeach()
endfunction()

# Configures, builds and runs a copy of a consumer project together with its source, so that nothing
# beside them is in reach. Sets `command` to the compiler call of that source.
function(build_and_run consumer host)
  set(source "${SCRATCH}/source")
  file(REMOVE_RECURSE "${SCRATCH}")
  file(COPY "${CMAKE_CURRENT_LIST_DIR}/${consumer}/CMakeLists.txt" "${host}"
    DESTINATION "${source}")
  run("${CMAKE_COMMAND}" -S "${source}" -B "${SCRATCH}/build" -G "${GENERATOR}"
    "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}" "-DCMAKE_CXX_COMPILER=${COMPILER}"
    "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}" "-DCMAKE_CXX_FLAGS=${FLAGS}"
    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON ${ARGN})
  run("${CMAKE_COMMAND}" --build "${SCRATCH}/build" --target consumer)
  run("${CMAKE_COMMAND}" -E chdir "${SCRATCH}/build" "${SCRATCH}/build/consumer")
  message(NOTICE "${output}")

  get_filename_component(name "${host}" NAME)
  file(READ "${SCRATCH}/build/compile_commands.json" calls)
  string(JSON count LENGTH "${calls}")
  math(EXPR last "${count} - 1")
  foreach(i RANGE ${last})
    string(JSON file GET "${calls}" ${i} file)
    if(file STREQUAL "${source}/${name}")
      string(JSON command GET "${calls}" ${i} command)
      set(command "${command}" PARENT_SCOPE)
    endif()
  endforeach()
endfunction()
