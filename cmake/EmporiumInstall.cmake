# SPDX-License-Identifier: BSD-3-Clause
#
# Sets the run path of the programs, the paths in the pkg-config files, and the directories of the shell
# completions.

# The run path is relative, so that an installed tree can be moved, unless a directory is given as an
# absolute path. It is empty if the loader searches the library's directory anyway.
if(CMAKE_INSTALL_FULL_LIBDIR IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
    set(EMPORIUM_INSTALL_RPATH "")
elseif(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_BINDIR}")
    set(EMPORIUM_INSTALL_RPATH "${CMAKE_INSTALL_FULL_LIBDIR}")
else()
    file(RELATIVE_PATH libdir_from_bindir
        "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
    set(EMPORIUM_INSTALL_RPATH "\$ORIGIN/${libdir_from_bindir}")
endif()

# The paths in a pkg-config file are relative to the file itself, so that an installed tree can be moved,
# unless a directory was given as an absolute path.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
    set(pc_prefix "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH prefix_from_pc
        "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
    set(pc_prefix "\${pcfiledir}/${prefix_from_pc}")
endif()
foreach(directory bin data include lib)
    string(TOUPPER "CMAKE_INSTALL_${directory}DIR" variable)
    if(IS_ABSOLUTE "${${variable}}")
        set(pc_${directory}dir "${${variable}}")
    else()
        set(pc_${directory}dir "\${prefix}/${${variable}}")
    endif()
endforeach()

# zsh looks in site-functions under /usr/local; under /usr, Debian's zsh looks in vendor-completions.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr" AND EXISTS /etc/debian_version)
    set(zsh_directory vendor-completions)
else()
    set(zsh_directory site-functions)
endif()
set(EMPORIUM_ZSH_COMPLETIONS_DIR "${CMAKE_INSTALL_DATADIR}/zsh/${zsh_directory}"
    CACHE STRING "Where the completions for zsh are installed")
set(EMPORIUM_FISH_COMPLETIONS_DIR "${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d"
    CACHE STRING "Where the completions for fish are installed")
