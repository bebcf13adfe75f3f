# cmake -DNODE= -DNPM= -DSOURCE= -DPAGE= -DNAMESPACE= -DFUNCTION= -DHEADER= -DWORK= -DOUTPUT=
#   -DREQUIRED= -P AlgMakePage.cmake
# Writes OUTPUT, a C++ source with the bundled page, or without one where npm cannot do its work.
cmake_minimum_required(VERSION 3.25)

set(inputs package.json package-lock.json .npmrc)
set(page "${WORK}/${PAGE}.html")
set(problem "")

function(run step)
  execute_process(COMMAND ${ARGN} WORKING_DIRECTORY "${WORK}"
    RESULT_VARIABLE result OUTPUT_VARIABLE said ERROR_VARIABLE said)
  if(NOT result EQUAL 0)
    string(JOIN " " command ${ARGN})
    file(WRITE "${WORK}/problem.log" "${command}\n${said}")
    set(problem "${step} failed (see ${WORK}/problem.log)" PARENT_SCOPE)
  endif()
endfunction()

# All pages are made in one folder, one after the other.
file(MAKE_DIRECTORY "${WORK}")
file(LOCK "${WORK}" DIRECTORY GUARD PROCESS)
file(REMOVE "${page}")
if(NOT NODE OR NOT NPM)
  set(problem "node or npm is missing")
else()
  # The packages are fetched again only when their list changes.
  set(key "")
  foreach(input IN LISTS inputs)
    file(SHA256 "${SOURCE}/${input}" hash)
    string(APPEND key "${hash}\n")
  endforeach()
  set(fetched "")
  if(EXISTS "${WORK}/fetched")
    file(READ "${WORK}/fetched" fetched)
  endif()
  if(NOT fetched STREQUAL key)
    foreach(input IN LISTS inputs)
      configure_file("${SOURCE}/${input}" "${WORK}/${input}" COPYONLY)
    endforeach()
    run("npm ci" "${NPM}" ci --ignore-scripts --no-audit --no-fund --prefer-offline
      --fetch-retries=1 --fetch-timeout=20000)
    if(NOT problem)
      file(WRITE "${WORK}/fetched" "${key}")
    endif()
  endif()
  if(NOT problem)
    run("bundling" "${NODE}" "${SOURCE}/build.mjs" "${SOURCE}/${PAGE}" "${WORK}" "${page}")
  endif()
endif()

set(bytes "")
set(size 0)
if(problem AND REQUIRED)
  message(FATAL_ERROR "the page ${PAGE} cannot be made: ${problem}")
elseif(problem)
  message("algtrack is built without the page ${PAGE}: ${problem}. "
    "To try again, remove ${OUTPUT} and build.")
else()
  file(SIZE "${page}" size)
  file(READ "${page}" bytes HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  string(REPEAT "0x..," 20 line)
  string(REGEX REPLACE "(${line})" "\\1\n" bytes "${bytes}")
endif()

file(WRITE "${OUTPUT}" "// Made by cmake/AlgMakePage.cmake.
#include <${HEADER}>

namespace ${NAMESPACE} {
namespace {

constexpr unsigned char kPage[] = {
${bytes}0};

}  // namespace

std::string_view ${FUNCTION}() {
  return {reinterpret_cast<const char*>(kPage), ${size}};
}

}  // namespace ${NAMESPACE}
")
