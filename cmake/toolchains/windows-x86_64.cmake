# Cross-builds for 64-bit Windows with Debian's mingw-w64; tests run under wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
# The posix thread model: the tests use std::thread. The library itself does not.
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

# Programs run on this machine; libraries and headers are the target's. Eigen is headers alone, so
# this machine's copy serves.
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(Eigen3_DIR /usr/share/eigen3/cmake CACHE PATH "")

# The compiler's own run-time libraries go into each binary: a DLL depends on the system's alone.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

# A wine of this build's own.
find_program(ALG_WINE NAMES wine64 wine PATHS /usr/lib/wine)
set(CMAKE_CROSSCOMPILING_EMULATOR
  "${CMAKE_CURRENT_LIST_DIR}/run-under-wine" "${ALG_WINE}" "${CMAKE_BINARY_DIR}/wine")
