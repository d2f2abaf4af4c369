# SPDX-License-Identifier: BSD-3-Clause

find_package(PkgConfig REQUIRED)

# scripts/setup installs sdbus-c++ here on systems that only have a version older than 2.
if(EXISTS "${PROJECT_SOURCE_DIR}/.deps/lib/cmake/sdbus-c++")
    list(PREPEND CMAKE_PREFIX_PATH "${PROJECT_SOURCE_DIR}/.deps")
endif()

# The static sdbus-c++ links these; its CMake package names the targets but does not find them.
find_package(Threads REQUIRED)
pkg_check_modules(Systemd REQUIRED IMPORTED_TARGET libsystemd)
find_package(sdbus-c++ 2 QUIET)
if(NOT sdbus-c++_FOUND)
    message(FATAL_ERROR
        "sdbus-c++ 2 was not found. Run ${PROJECT_SOURCE_DIR}/scripts/setup, which installs it or "
        "builds it into ${PROJECT_SOURCE_DIR}/.deps; or set sdbus-c++_DIR to the directory of "
        "sdbus-c++-config.cmake, or add the prefix it is installed in to CMAKE_PREFIX_PATH.")
endif()
find_package(Boost 1.74 REQUIRED CONFIG COMPONENTS filesystem serialization)
pkg_check_modules(GLIB REQUIRED IMPORTED_TARGET glib-2.0)
