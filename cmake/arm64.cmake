# SPDX-License-Identifier: Apache-2.0
# Toolchain file: builds for arm64 with Debian's cross compiler and the arm64 libraries that `scripts/setup arm64`
# installs beside those of this machine. What is built runs under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
find_program(VELTRA_EMULATOR qemu-aarch64 REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR "${VELTRA_EMULATOR}")
