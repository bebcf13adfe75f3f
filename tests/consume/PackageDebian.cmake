# The .deb files: built from the source tree, judged by lintian, and used by a host from a scratch
# root into which they are unpacked.
#   SCRATCH, SOURCE, GENERATOR, MAKE_PROGRAM, COMPILER, LAUNCHER, VERSION,
#   C_COMPILER, LINTIAN, DPKG_DEB, PKG_CONFIG, READELF, HARDENING_CHECK
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

set(build "${SCRATCH}/build")
set(root "${SCRATCH}/root")
file(REMOVE_RECURSE "${SCRATCH}")
run("${CMAKE_COMMAND}" -S "${SOURCE}" -B "${build}" -G "${GENERATOR}"
  "-DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}" "-DCMAKE_CXX_COMPILER=${COMPILER}"
  "-DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER}" -DCMAKE_BUILD_TYPE=Release
  -DCMAKE_INSTALL_PREFIX=/usr -DBUILD_TESTING=OFF -DALG_FACTORY_HARDEN=ON
  -DALG_FACTORY_REQUIRE_TOOLS=ON)
run("${CMAKE_COMMAND}" --build "${build}" --target alg_factory alg_factory_c algtrack alg_python)
get_filename_component(cmake_folder "${CMAKE_COMMAND}" DIRECTORY)
# CPack gives folders what the umask leaves.
run(sh -c "umask 022 && cd \"$0\" && exec \"$1\"" "${build}" "${cmake_folder}/cpack")

file(GLOB packages RELATIVE "${build}/packages" "${build}/packages/*.deb")
run(dpkg --print-architecture)
string(STRIP "${output}" architecture)
set(expected "")
foreach(package IN ITEMS libalg-factory libalg-factory-c libalg-factory-dev alg-factory-tools
    python3-alg-factory)
  list(APPEND expected "${package}_${VERSION}_${architecture}.deb")
endforeach()
expect_same("packages" expected packages)

set(files "")
foreach(package IN LISTS packages)
  list(APPEND files "${build}/packages/${package}")
  run("${DPKG_DEB}" -x "${build}/packages/${package}" "${root}")
endforeach()
run("${LINTIAN}" --allow-root --no-tag-display-limit --fail-on error,warning ${files})
message("lintian: ${output}")

# Dependencies: the compiler's and C libraries from the symbols used, and this very library.
function(expect_field package field pattern)
  run("${DPKG_DEB}" -f "${build}/packages/${package}_${VERSION}_${architecture}.deb" ${field})
  if(NOT output MATCHES "${pattern}")
    fail("${package} ${field}: '${output}' is not like ${pattern}")
  endif()
endfunction()
string(REPLACE "." "\\." version "${VERSION}")
expect_field(libalg-factory Depends "libc6 \\(>= [0-9.]+\\).*libstdc\\+\\+6")
expect_field(libalg-factory-dev Depends
  "^libalg-factory \\(= ${version}\\), libsqlite3-dev, libalg-factory-c \\(= ${version}\\)\n$")
expect_field(libalg-factory-c Depends "libalg-factory \\(>= ${version}\\)")
expect_field(libalg-factory-c Depends "libsqlite3-0.*libyaml-cpp")
expect_field(alg-factory-tools Depends "libsqlite3-0.*libyaml-cpp")
expect_field(python3-alg-factory Depends "python3 \\(>= 3.*python3-numpy")
expect_field(python3-alg-factory Depends "libsqlite3-0.*libyaml-cpp")

string(REGEX MATCH "^[0-9]+" major "${VERSION}")
math(EXPR next "${major} + 1")
foreach(package IN ITEMS libalg-factory libalg-factory-c)
  run("${DPKG_DEB}" -I "${build}/packages/${package}_${VERSION}_${architecture}.deb" shlibs)
  string(REPLACE "-" "_" library "${package}")
  set(expected "${library} ${major} ${package} (>= ${VERSION}), ${package} (<< ${next})\n")
  if(NOT output STREQUAL expected)
    fail("packages of hosts would depend on '${output}', expected '${expected}'")
  endif()
endforeach()

# What belongs where.
run("${DPKG_DEB}" -c "${build}/packages/libalg-factory_${VERSION}_${architecture}.deb")
if(NOT output MATCHES "/libalg_factory\\.so\\.${version}\n" OR output MATCHES "\\.h\n|\\.so ->")
  fail("libalg-factory does not hold the library alone:\n${output}")
endif()
file(GLOB libraries "${root}/usr/lib/*/libalg_factory.so.${VERSION}")
if(NOT libraries)
  fail("the library is not in a folder of this architecture")
endif()
get_filename_component(libdir "${libraries}" DIRECTORY)
run("${READELF}" -S "${libraries}")
if(output MATCHES "\\.debug_|\\.symtab")
  fail("the library is not stripped")
endif()

# The library copies no text whose size the compiler does not know, so that nothing in it is fortified.
# The mark of control-flow protection is left out by the linker unless every object has it, and the
# C library's start files here have none; the instructions themselves are there.
if(HARDENING_CHECK)
  run("${HARDENING_CHECK}" --nopie --nofortify --nocfprotection "${libraries}")
  run("${HARDENING_CHECK}" --nofortify --nocfprotection "${root}/usr/bin/algtrack")
  run("${HARDENING_CHECK}" --nopie --nofortify --nocfprotection
    "${libdir}/libalg_factory_c.so.${VERSION}")
endif()

run("${root}/usr/bin/algtrack" --version)
if(NOT output MATCHES "${version}")
  fail("algtrack is another version: ${output}")
endif()

# The Python module, by the interpreter that the package names.
run("${CMAKE_COMMAND}" -E env "PYTHONPATH=${root}/usr/lib/python3/dist-packages" PYTHONDONTWRITEBYTECODE=1
  /usr/bin/python3 -c "import sys, alg_factory as af
af.simulate(sys.argv[1], seconds=1, overwrite=True)
print(af.__version__, af.verify(sys.argv[1]), len(af.Recording(sys.argv[1]).blocks))"
  "${SCRATCH}/walk.algrec")
if(NOT output MATCHES "${version} True 90")
  fail("the packaged Python module: ${output}")
endif()

# A host, by both ways in.
file(RELATIVE_PATH LIBDIR "${root}/usr" "${libdir}")
set(package_prefix "${root}/usr")
set(SCRATCH "${SCRATCH}/find_package")
build_and_run(find_package "${CMAKE_CURRENT_LIST_DIR}/host.cpp"
  "-DCMAKE_PREFIX_PATH=${package_prefix}"
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
set(SCRATCH "${SCRATCH}-recording")
build_and_run(recording "${CMAKE_CURRENT_LIST_DIR}/recording_host.cpp"
  "-DCMAKE_PREFIX_PATH=${package_prefix}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
# Packaged libraries find each other where the system looks; here they were unpacked elsewhere.
set(ENV{LD_LIBRARY_PATH} "${libdir}")
run("${CMAKE_COMMAND}" "-DPREFIX=${package_prefix}" "-DLIBDIR=${LIBDIR}"
  "-DSCRATCH=${SCRATCH}-c" "-DCOMPILER=${COMPILER}" "-DC_COMPILER=${C_COMPILER}"
  "-DPKG_CONFIG=${PKG_CONFIG}" "-DSOURCE=${SOURCE}" "-DGENERATOR=${GENERATOR}"
  "-DMAKE_PROGRAM=${MAKE_PROGRAM}" "-DLAUNCHER=${LAUNCHER}" -DBUILD_TYPE=Release
  -P "${CMAKE_CURRENT_LIST_DIR}/ConsumeC.cmake")
unset(ENV{LD_LIBRARY_PATH})
if(PKG_CONFIG)
  run("${CMAKE_COMMAND}" "-DPREFIX=${package_prefix}" "-DLIBDIR=${LIBDIR}"
    "-DSCRATCH=${SCRATCH}-pkg-config" "-DCOMPILER=${COMPILER}" "-DPKG_CONFIG=${PKG_CONFIG}"
    -P "${CMAKE_CURRENT_LIST_DIR}/ConsumePkgConfig.cmake")
endif()
