# Cross build for the telephone's 32-bit ARM (armhf) with Debian's
# g++-arm-linux-gnueabihf. Programs and tests run under qemu-arm.
#
# KIVO_ARM_SYSROOT is a directory with what the cross compiler lacks:
# jsoncpp and GoogleTest for armhf and the Boost headers
# (scripts/arm-sysroot.sh makes it; the arm preset points here to
# build-arm/sysroot).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)

if(NOT KIVO_ARM_SYSROOT AND DEFINED ENV{KIVO_ARM_SYSROOT})
  set(KIVO_ARM_SYSROOT "$ENV{KIVO_ARM_SYSROOT}")
endif()
if(NOT KIVO_ARM_SYSROOT)
  message(FATAL_ERROR "set KIVO_ARM_SYSROOT (bash scripts/arm-sysroot.sh makes one)")
endif()
# try_compile projects read this file again and need the value too.
set(ENV{KIVO_ARM_SYSROOT} "${KIVO_ARM_SYSROOT}")

# 64-bit file offsets and inode numbers: without them 32-bit stat() and
# readdir() fail with EOVERFLOW on file systems with large inode numbers.
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64")

set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf ${KIVO_ARM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Libraries of the sysroot that others need (libedit's libbsd and libtinfo)
# are found at link time here.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${KIVO_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf -Wl,-rpath-link,${KIVO_ARM_SYSROOT}/lib/arm-linux-gnueabihf")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${CMAKE_EXE_LINKER_FLAGS_INIT}")

# pkg-config must see the armhf .pc files only, with their paths in the sysroot.
set(ENV{PKG_CONFIG_LIBDIR} "${KIVO_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${KIVO_ARM_SYSROOT}")
set(ENV{PKG_CONFIG_PATH} "")

# ctest and gtest_discover_tests run the test programs through this; the
# guest's loader finds libc in the cross packages and jsoncpp in the sysroot.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm -L /usr/arm-linux-gnueabihf
    -E LD_LIBRARY_PATH=${KIVO_ARM_SYSROOT}/usr/lib/arm-linux-gnueabihf)
