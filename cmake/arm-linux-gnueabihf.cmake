# Cross build for the phone's ARM (Debian's arm-linux-gnueabihf toolchain and armhf packages).
# Programs built here run on the workstation under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf /usr/lib/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
# Header-only dependencies (SimpleIni) are architecture-independent and live in /usr/include.
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
# The armhf packages (libc6:armhf and the libraries the build links) sit in the multiarch folders,
# where qemu-arm finds them without a prefix; the cross toolchain's own copies under
# /usr/arm-linux-gnueabihf are for linking only.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
