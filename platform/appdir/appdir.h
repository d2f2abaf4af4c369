// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>

/// Stand-in for the platform's application-directory library, for machines other than devices.
namespace AppDir {

/// The private directories of an application. The platform has more of them; this stand-in has the
/// one that libemporium needs.
enum class PathType : int
{
    Cache = 2,
};

/// Returns the application's directory of this type, whether it exists or not.
///
/// For PathType::Cache: `$XDG_CACHE_HOME/NAME`, or `$HOME/.cache/NAME` if XDG_CACHE_HOME is unset,
/// empty or relative. NAME is `VEYRA_APP_ID`, or the program's short name if that is unset, empty or
/// not a plain file name. If HOME is unset, empty or relative as well, the home directory comes from
/// the password database.
///
/// Throws `std::invalid_argument` for another type, and `std::runtime_error` if there is no home
/// directory.
std::string getPath(PathType type);

} // namespace AppDir
