# SPDX-License-Identifier: BSD-3-Clause
#
# Adds the hardening flags that distributions use. Not in debug builds, because _FORTIFY_SOURCE needs
# optimisation, and not in sanitized builds, because it would hide errors from the sanitizers.

include(CheckCXXCompilerFlag)

function(emporium_harden)
    file(STRINGS "${PROJECT_SOURCE_DIR}/cmake/hardening-flags.txt" flags)
    set(release "$<NOT:$<CONFIG:Debug>>")
    set(CMAKE_REQUIRED_QUIET TRUE)
    set(CMAKE_REQUIRED_FLAGS -Werror) # clang only warns of an option for another processor
    foreach(flag IN LISTS flags)
        string(MAKE_C_IDENTIFIER "EMPORIUM_COMPILER_HAS${flag}" known)
        check_cxx_compiler_flag("${flag}" ${known})
        if(${known})
            add_compile_options("$<$<AND:${release},$<COMPILE_LANGUAGE:CXX>>:${flag}>")
        endif()
    endforeach()
    add_link_options("$<${release}:-Wl,-z,relro,-z,now>")
endfunction()
