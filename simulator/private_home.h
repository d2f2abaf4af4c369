// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Simulator {

/// Which directories of the user a command sees.
enum class Home
{
    User,         ///< all of them
    PrivateCache, ///< a new XDG_CACHE_HOME
    Private,      ///< a new HOME and new XDG directories
};

using Environment = std::vector<std::pair<std::string, std::string>>;

/// Creates the new directories in this one and returns the variables that name them.
/// @throws std::filesystem::filesystem_error
Environment CreateHome(Home home, const std::filesystem::path& directory);

} // namespace Simulator
