# SPDX-License-Identifier: BSD-3-Clause
#
# Toolchain file: builds for aarch64 with Debian's cross compiler and its libraries of that architecture
# (dpkg --add-architecture arm64).

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# The compiler searches the directories of its architecture by itself, pkg-config must be pointed there.
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig")
