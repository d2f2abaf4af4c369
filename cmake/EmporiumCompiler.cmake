# SPDX-License-Identifier: BSD-3-Clause

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

add_link_options(-Wl,--as-needed)

# An absolute path would leave a trace of the build directory in installed programs.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# Warnings are errors for developers only: a newer compiler must not break the build of a release.
if(EMPORIUM_DEVELOPER)
    add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
endif()

if(EMPORIUM_HARDENING AND NOT EMPORIUM_SANITIZE)
    include(EmporiumHardening)
    emporium_harden()
endif()

if(EMPORIUM_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(EMPORIUM_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()

if(EMPORIUM_BUILD_FUZZERS)
    add_compile_options(-fsanitize=fuzzer-no-link) # the coverage that guides a fuzz target
endif()
