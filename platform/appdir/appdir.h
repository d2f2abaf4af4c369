// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>

/// Stand-in for the platform's application-directory library, for machines that are no device.
namespace AppDir {

/// The directories that an application has to itself. The platform knows more of them; this
/// stand-in has the one that libemporium asks for.
enum class PathType : int
{
    Cache = 2,
};

/// The application's directory of this type, whether it exists or not.
///
/// For PathType::Cache: `$XDG_CACHE_HOME/NAME`, or `$HOME/.cache/NAME` where XDG_CACHE_HOME is
/// unset, empty or relative. NAME is `VEYRA_APP_ID`, or the program's short name where that is
/// unset, empty or not a single plain file name. Where HOME is of no use either, the home directory
/// comes from the password database.
///
/// Throws `std::invalid_argument` for another type, and `std::runtime_error` if there is no home
/// directory.
std::string getPath(PathType type);

} // namespace AppDir
