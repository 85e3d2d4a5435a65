# Cross-builds for 64-bit Arm Linux on a Debian machine of another architecture, with Debian's
# cross compiler and the arm64 libraries of multiarch (tools/setup.sh --arm64 installs both):
#
#   cmake --preset arm64 && cmake --build --preset arm64 && ctest --preset arm64
#
# The built programs run through qemu-user, so CTest, gtest_discover_tests and
# add_test(COMMAND <target>) run the arm64 binaries on this machine.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# The programs run on the arm64 C library of multiarch (libc6:arm64, /lib/aarch64-linux-gnu),
# the one the arm64 Poco and GoogleTest packages are built on. `-L /` keeps qemu from taking
# the loader from another root: the cross compiler's /usr/aarch64-linux-gnu holds a loader of
# another glibc build, which the multiarch libc.so.6 does not match, and new threads then hang.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /)

# The arm64 Poco headers, libraries and CMake package, unpacked apart from the native ones
# because Debian 12 cannot install libpoco-dev for two architectures at once.
set(QES_ARM64_POCO_ROOT /opt/aarch64-linux-gnu-poco CACHE PATH
    "Tree holding usr/include and usr/lib/aarch64-linux-gnu of the arm64 Poco packages")

# Libraries, headers and packages are looked for in the Poco tree, then the cross C library,
# then the build machine's root, where CMAKE_LIBRARY_ARCHITECTURE picks the arm64 multiarch
# directories (/usr/lib/aarch64-linux-gnu, /usr/include/aarch64-linux-gnu) and never the
# native ones. Programs such as pkg-config are the build machine's own.
set(CMAKE_FIND_ROOT_PATH "${QES_ARM64_POCO_ROOT}" /usr/aarch64-linux-gnu /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config reads the arm64 .pc files, never the build machine's.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
