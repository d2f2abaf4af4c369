// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

namespace Emporium {

/// The daemon's events, for DaemonConnection::SubscribeToEvent().
enum class EventType : std::int32_t
{
    PackageInstalled = 0, ///< The callback takes a `const Package&`.
    PackageUpgraded = 1,  ///< The callback takes a `const Package&`.
    PackageRemoved = 2, ///< The callback takes a `const Package&`: the package before its removal.
    OperationStatusChanged = 3, ///< The callback takes a `const Operation&`.
};

} // namespace Emporium
