# Cross build for the device: 32-bit little-endian ARM, EABI hard-float,
# Debian's arm-linux-gnueabihf toolchain (g++-arm-linux-gnueabihf). Target
# binaries run on the build machine under qemu-user, so CTest (and
# gtest_discover_tests) can run the test suite here.
#
#   cmake -S . -B build-armhf -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake -DCMAKE_BUILD_TYPE=Release
#
# Extra target libraries (e.g. the peer unpacked by scripts/run-arm-tests.sh)
# are found through KEL_ARMHF_EXTRA_ROOT, a directory laid out like a root
# file system.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(KEL_ARMHF_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${KEL_ARMHF_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${KEL_ARMHF_TRIPLE}-g++)
# The cross libc and libstdc++ (libc6-dev-armhf-cross and friends).
set(KEL_ARMHF_SYSROOT /usr/${KEL_ARMHF_TRIPLE})
# Debian multiarch layout for target libraries under the extra root.
set(CMAKE_LIBRARY_ARCHITECTURE ${KEL_ARMHF_TRIPLE})

# try_compile projects re-read this file; hand them the extra root too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KEL_ARMHF_EXTRA_ROOT)
set(CMAKE_FIND_ROOT_PATH ${KEL_ARMHF_SYSROOT})
if(KEL_ARMHF_EXTRA_ROOT)
  list(APPEND CMAKE_FIND_ROOT_PATH ${KEL_ARMHF_EXTRA_ROOT})
endif()
# Programs come from the build machine; headers, libraries and packages only
# from the target roots, so nothing of the host's x86-64 libraries leaks in.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

find_program(KEL_QEMU_ARM qemu-arm)
if(KEL_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KEL_QEMU_ARM} -L ${KEL_ARMHF_SYSROOT})
endif()
