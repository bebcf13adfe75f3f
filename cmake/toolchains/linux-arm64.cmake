# Cross-builds for 64-bit ARM with Debian's compiler; tests run under qemu's user mode.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Eigen is headers alone, so this machine's copy serves.
set(Eigen3_DIR /usr/share/eigen3/cmake CACHE PATH "")

find_program(ALG_QEMU NAMES qemu-aarch64)
set(CMAKE_CROSSCOMPILING_EMULATOR "${ALG_QEMU};-L;/usr/aarch64-linux-gnu")
