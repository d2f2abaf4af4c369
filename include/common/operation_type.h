// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

namespace Common {

/// What an operation does to its package.
///
/// The numbers cross the bus and are stored in cache files. A number that is not listed here is
/// carried unchanged, so a `switch` over this type needs a default.
enum class OperationType : std::int32_t
{
    Install = 0, ///< The package is not installed yet.
    Upgrade = 1, ///< Another version of the package is installed.
    Remove = 2,  ///< The package goes.
};

} // namespace Common
