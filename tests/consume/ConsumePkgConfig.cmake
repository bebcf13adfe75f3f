# A host compiled by one command line, with the flags that pkg-config gives.
#   PREFIX, LIBDIR, SCRATCH, COMPILER, PKG_CONFIG
include("${CMAKE_CURRENT_LIST_DIR}/Common.cmake")

# This tree's file alone, and flags even where they name the compiler's own folders.
set(ENV{PKG_CONFIG_LIBDIR} "${PREFIX}/${LIBDIR}/pkgconfig")
set(ENV{PKG_CONFIG_ALLOW_SYSTEM_CFLAGS} 1)
set(ENV{PKG_CONFIG_ALLOW_SYSTEM_LIBS} 1)
run("${PKG_CONFIG}" --cflags --libs alg_factory)
string(STRIP "${output}" output)
separate_arguments(flags UNIX_COMMAND "${output}")

compile_plainly("${SCRATCH}/consumer" flags "${CMAKE_CURRENT_LIST_DIR}/host.cpp")
set(ENV{LD_LIBRARY_PATH} "${PREFIX}/${LIBDIR}")
run("${SCRATCH}/consumer")
message("${output}")
