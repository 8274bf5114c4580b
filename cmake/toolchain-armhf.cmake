# Cross build for the device: 32-bit little-endian ARM, EABI hard-float,
# Debian's arm-linux-gnueabihf toolchain (g++-arm-linux-gnueabihf). Target
# binaries run on the build machine under qemu-user, so CTest (and
# gtest_discover_tests) can run the test suite here.
#
#   cmake -S . -B build-armhf -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake -DCMAKE_BUILD_TYPE=Release
#
# Extra target libraries (the peer and GStreamer, unpacked by
# scripts/run-arm-tests.sh) are found through KEL_ARMHF_EXTRA_ROOT, a
# directory laid out like a merged-/usr root file system. pkg-config, the
# linker and the emulator all look there.
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

# pkg-config must read the target's .pc files, never the build machine's, and
# prefix their -I/-L paths with the root.
set(KEL_ARMHF_LIBDIR "")
if(KEL_ARMHF_EXTRA_ROOT)
  set(KEL_ARMHF_LIBDIR ${KEL_ARMHF_EXTRA_ROOT}/usr/lib/${KEL_ARMHF_TRIPLE})
  set(ENV{PKG_CONFIG_LIBDIR} "${KEL_ARMHF_LIBDIR}/pkgconfig:${KEL_ARMHF_EXTRA_ROOT}/usr/share/pkgconfig")
  set(ENV{PKG_CONFIG_SYSROOT_DIR} "${KEL_ARMHF_EXTRA_ROOT}")
  # Libraries pulled in by the ones we link (libgstreamer -> libffi, libdw, ...)
  # are looked up by the linker only through -rpath-link.
  foreach(kind EXE SHARED MODULE)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-Wl,-rpath-link,${KEL_ARMHF_LIBDIR}")
  endforeach()
else()
  # No target .pc files: pkg-config finds nothing rather than host packages.
  set(ENV{PKG_CONFIG_LIBDIR} "${KEL_ARMHF_SYSROOT}/lib/pkgconfig")
  unset(ENV{PKG_CONFIG_SYSROOT_DIR})
endif()

find_program(KEL_QEMU_ARM qemu-arm)
if(KEL_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KEL_QEMU_ARM} -L ${KEL_ARMHF_SYSROOT})
  if(KEL_ARMHF_LIBDIR)
    # Set for the emulated program only: qemu itself is a host binary. Covers
    # indirect and dlopen()ed libraries (GStreamer's plug-ins), which the
    # build RPATH does not.
    list(APPEND CMAKE_CROSSCOMPILING_EMULATOR -E LD_LIBRARY_PATH=${KEL_ARMHF_LIBDIR})
  endif()
endif()

# What a test that runs GStreamer under the emulator needs besides a
# GST_REGISTRY file of its own: no plug-in scanner subprocess, and only the
# target's own plug-ins (coreelements), none of the build machine's.
if(KEL_ARMHF_LIBDIR)
  set(KEL_ARMHF_GST_TEST_ENV
    GST_REGISTRY_FORK=no
    GST_PLUGIN_SYSTEM_PATH_1_0=${KEL_ARMHF_LIBDIR}/gstreamer-1.0)
else()
  set(KEL_ARMHF_GST_TEST_ENV GST_REGISTRY_FORK=no GST_PLUGIN_SYSTEM_PATH_1_0=)
endif()
