// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

namespace Common {

/// What an operation does to its package.
///
/// The numbers cross the bus and are stored in cache files. Unknown numbers are carried unchanged, so
/// a `switch` over this type needs a default.
enum class OperationType : std::int32_t
{
    Install = 0, ///< Installs a package that is not installed.
    Upgrade = 1, ///< Replaces the installed version of the package.
    Remove = 2,  ///< Removes the package.
};

} // namespace Common
