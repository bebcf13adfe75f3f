# A host in C that knows the installed tree only: as a CMake project without any C++, by one command
# line, and the header alone, as C and as C++ has it.
#   PREFIX, LIBDIR, SCRATCH, GENERATOR, MAKE_PROGRAM, COMPILER, C_COMPILER, LAUNCHER, FLAGS,
#   BUILD_TYPE, PKG_CONFIG, SOURCE
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

set(host "${SOURCE}/examples/c_host/main.c")
set(strict -Wall -Wextra -pedantic -Werror)
build_and_run(c "${host}" "-DCMAKE_C_COMPILER=${C_COMPILER}" "-DCMAKE_C_FLAGS=${FLAGS}"
  "-DCMAKE_PREFIX_PATH=${PREFIX}"
  "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)

file(WRITE "${SCRATCH}/alone.c" "#include <alg_factory_c.h>\n#include <alg_factory_c.h>\n")
run("${C_COMPILER}" -std=c11 ${strict} -Wconversion -fsyntax-only -I "${PREFIX}/include"
  "${SCRATCH}/alone.c")
run("${COMPILER}" -x c++ -std=c++17 ${strict} -Wold-style-cast -fsyntax-only -I "${PREFIX}/include"
  "${SCRATCH}/alone.c")

if(PKG_CONFIG AND NOT FLAGS MATCHES "-fsanitize")
  set(ENV{PKG_CONFIG_LIBDIR} "${PREFIX}/${LIBDIR}/pkgconfig")
  set(ENV{PKG_CONFIG_ALLOW_SYSTEM_CFLAGS} 1)
  set(ENV{PKG_CONFIG_ALLOW_SYSTEM_LIBS} 1)
  run("${PKG_CONFIG}" --cflags --libs alg_factory_c)
  string(STRIP "${output}" output)
  separate_arguments(flags UNIX_COMMAND "${output}")
  run("${C_COMPILER}" -std=c11 ${strict} -o "${SCRATCH}/consumer" "${host}" ${flags})
  set(ENV{LD_LIBRARY_PATH} "${PREFIX}/${LIBDIR}")
  run("${SCRATCH}/consumer")
  message("${output}")
endif()
