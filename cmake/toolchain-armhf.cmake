# Cross build for the device, 32-bit ARM hard-float, from an x86-64 Debian machine.
#
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake -DKORVEL_ARMHF_SYSROOT=<dir> ...
#
# <dir> is the sysroot scripts/armhf_sysroot.sh prints (or KORVEL_ARMHF_SYSROOT in the environment).
# Our own binaries are built for armhf and run under qemu-arm: ctest and gtest_discover_tests go
# through CMAKE_CROSSCOMPILING_EMULATOR, so the suites run unchanged. Programs the build and the tests
# start (ffmpeg, python3, bash) stay the machine's own.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(KORVEL_ARMHF_TRIPLET arm-linux-gnueabihf)

if(NOT KORVEL_ARMHF_SYSROOT AND DEFINED ENV{KORVEL_ARMHF_SYSROOT})
    set(KORVEL_ARMHF_SYSROOT "$ENV{KORVEL_ARMHF_SYSROOT}")
endif()
if(NOT KORVEL_ARMHF_SYSROOT OR NOT EXISTS "${KORVEL_ARMHF_SYSROOT}/usr/include")
    message(FATAL_ERROR "toolchain-armhf: set KORVEL_ARMHF_SYSROOT to the sysroot scripts/armhf_sysroot.sh "
        "prints (got '${KORVEL_ARMHF_SYSROOT}')")
endif()
# try_compile projects re-read this file: hand the sysroot on to them.
set(KORVEL_ARMHF_SYSROOT "${KORVEL_ARMHF_SYSROOT}" CACHE PATH "armhf sysroot")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KORVEL_ARMHF_SYSROOT)

set(CMAKE_C_COMPILER ${KORVEL_ARMHF_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KORVEL_ARMHF_TRIPLET}-g++)
set(CMAKE_SYSROOT "${KORVEL_ARMHF_SYSROOT}")
set(CMAKE_LIBRARY_ARCHITECTURE ${KORVEL_ARMHF_TRIPLET})
# 64-bit file offsets and inode numbers: without them readdir() and stat() of the 32-bit build fail
# with EOVERFLOW on any file system that hands out 64-bit values (directory offsets on a 64-bit kernel,
# as under the emulator, inode numbers on large or network file systems). None of our public headers
# carries an off_t, so programs built either way link with the library alike.
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64")
# Everything here is built with the one compiler: the note that GCC 7.1 changed how some arguments
# are passed on ARM concerns mixing objects across that change only, and would bury real warnings.
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")

# Libraries, headers and packages come from the sysroot only; programs (pkg-config, bash) from the
# build machine.
set(CMAKE_FIND_ROOT_PATH "${KORVEL_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} "${KORVEL_ARMHF_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${KORVEL_ARMHF_SYSROOT}/usr/lib/${KORVEL_ARMHF_TRIPLET}/pkgconfig:${KORVEL_ARMHF_SYSROOT}/usr/lib/pkgconfig:${KORVEL_ARMHF_SYSROOT}/usr/share/pkgconfig")
unset(ENV{PKG_CONFIG_PATH})

# The libraries ours link against need theirs in turn; a cross linker does not read the sysroot's
# ld.so.conf, so it is told where the multiarch directories are.
foreach(dir lib/${KORVEL_ARMHF_TRIPLET} usr/lib/${KORVEL_ARMHF_TRIPLET})
    string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${KORVEL_ARMHF_SYSROOT}/${dir}")
    string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath-link,${KORVEL_ARMHF_SYSROOT}/${dir}")
    string(APPEND CMAKE_MODULE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${KORVEL_ARMHF_SYSROOT}/${dir}")
endforeach()

# The sysroot's dynamic loader and libraries serve the emulated programs; paths outside the sysroot
# (the build tree, the test media) fall through to the machine's own.
find_program(KORVEL_QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR "${KORVEL_QEMU_ARM};-L;${KORVEL_ARMHF_SYSROOT}")
