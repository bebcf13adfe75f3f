# Packages: .deb files (libraries, development files, tools) or one .zip for Windows. script/package
# builds them; the version is the project's.
set(ALG_FACTORY_PACKAGER "alg_factory developers <developers@example.org>" CACHE STRING
  "Name and address of whoever answers for the packages")
mark_as_advanced(ALG_FACTORY_PACKAGER)

set(CPACK_PACKAGE_NAME alg-factory)
set(CPACK_PACKAGE_VENDOR "alg_factory developers")
set(CPACK_PACKAGE_CONTACT "${ALG_FACTORY_PACKAGER}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET alg_factory_c)
  list(APPEND CPACK_COMPONENTS_ALL c)
endif()
if(TARGET algtrack)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(TARGET alg_python)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()

if(WIN32)
  set(CPACK_GENERATOR ZIP)
  list(REMOVE_ITEM CPACK_COMPONENTS_ALL tools)
  set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
  set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY ON)
  set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
  set(CPACK_PACKAGE_FILE_NAME "alg-factory-${PROJECT_VERSION}-windows-x86_64")
  include(CPack)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libalg-factory)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Stereo optical tracking, shared library
A host application loads this library beside the driver of a stereo optical
tracking device. It takes the device's packets and inertial samples and gives
back stabilised, smoothed 3D positions.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libalg-factory-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "libalg-factory (= ${PROJECT_VERSION}), libsqlite3-dev")
# For components that a host may not use.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS
  "libeigen3-dev, libyaml-cpp-dev, libopenigtlink-dev, liblo-dev")
if(TARGET alg_factory_c)
  string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    ", libalg-factory-c (= ${PROJECT_VERSION})")
endif()
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Stereo optical tracking, development files
Headers, CMake package and pkg-config files, for compiling hosts of the
tracking library, and the static library that lets a host record its session.")

set(CPACK_DEBIAN_C_PACKAGE_NAME libalg-factory-c)
set(CPACK_DEBIAN_C_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_C_PACKAGE_DEPENDS "libalg-factory (>= ${PROJECT_VERSION})")
# Where the libraries lie of which one needs the other.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/alg_factory")
set(CPACK_COMPONENT_C_DESCRIPTION "Stereo optical tracking, shared library for C
The tracking library behind an interface in plain C, for hosts in C and in
every language that can call C: live tracking, recordings, calibrations.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME alg-factory-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Stereo optical tracking, command-line tools
The program algtrack simulates a tracking device, replays and inspects
recordings of the tracking library, converts and checks camera calibrations,
and writes reports.")

# The extension is for the interpreter that it was built with.
if(TARGET alg_python)
  find_package(Python 3.10 REQUIRED COMPONENTS Interpreter)
  math(EXPR next_python "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-alg-factory)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  string(CONCAT CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}), "
    "python3 (<< ${Python_VERSION_MAJOR}.${next_python}), python3-numpy")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-distributed, python3-pandas, alg-factory-tools")
  set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Stereo optical tracking, Python module
The module alg_factory runs the tracking library from Python and gives
recordings of it as numpy arrays: positions, answers, every blob and why it
ended where it did. It simulates, replays with changes, verifies and reports,
and runs batches on a cluster.")
endif()

# What Debian wants beside the files, and `cmake --install` leaves out: copyright and changelog of
# each package, the reasons for what lintian is told to overlook, and the trigger that makes a new
# library known to the loader.
find_program(ALG_GZIP gzip)
mark_as_advanced(ALG_GZIP)
if(NOT ALG_GZIP)
  return()
endif()
set(files "${PROJECT_SOURCE_DIR}/cmake/packaging")
set(made "${PROJECT_BINARY_DIR}/packaging")

function(alg_gzip file)
  # -n: no name and time, so that equal files give equal packages.
  execute_process(COMMAND "${ALG_GZIP}" -9nkf "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Honours SOURCE_DATE_EPOCH.
string(TIMESTAMP ALG_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER "${component}" COMPONENT)
  set(ALG_PACKAGE "${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME}")
  configure_file("${files}/changelog.in" "${made}/${ALG_PACKAGE}/changelog" @ONLY)
  alg_gzip("${made}/${ALG_PACKAGE}/changelog")
  install(FILES "${files}/copyright" "${made}/${ALG_PACKAGE}/changelog.gz"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${ALG_PACKAGE}" COMPONENT ${component} EXCLUDE_FROM_ALL)
  if(EXISTS "${files}/${ALG_PACKAGE}.lintian-overrides")
    install(FILES "${files}/${ALG_PACKAGE}.lintian-overrides"
      DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" RENAME "${ALG_PACKAGE}"
      COMPONENT ${component} EXCLUDE_FROM_ALL)
  endif()
endforeach()
# What a packaged host depends on: it may need what an older library lacks, and a library of the next
# major version, which takes this one's place, is another file.
set(shared_components runtime)
set(shared_libraries libalg_factory)
if(TARGET alg_factory_c)
  list(APPEND shared_components c)
  list(APPEND shared_libraries libalg_factory_c)
endif()
math(EXPR ALG_NEXT_MAJOR "${PROJECT_VERSION_MAJOR} + 1")
foreach(component library IN ZIP_LISTS shared_components shared_libraries)
  string(TOUPPER "${component}" COMPONENT)
  set(ALG_LIBRARY "${library}")
  set(ALG_PACKAGE "${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME}")
  configure_file("${files}/shlibs.in" "${made}/${ALG_PACKAGE}/shlibs" @ONLY)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_CONTROL_EXTRA
    "${files}/triggers" "${made}/${ALG_PACKAGE}/shlibs")
endforeach()

if(TARGET algtrack)
  configure_file("${files}/algtrack.1.in" "${made}/algtrack.1" @ONLY)
  alg_gzip("${made}/algtrack.1")
  install(FILES "${made}/algtrack.1.gz" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1"
    COMPONENT tools EXCLUDE_FROM_ALL)
endif()

include(CPack)
