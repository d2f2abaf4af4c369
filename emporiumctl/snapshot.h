// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/emporium.h>

#include <string>
#include <vector>

namespace EmporiumCtl {

/// The daemon's state at one moment.
struct Snapshot
{
    explicit Snapshot(const Emporium::DaemonConnection& connection);

    /// The newest description of the operation, or null.
    const Emporium::Operation* Find(const std::string& uuid) const;

    std::string architecture;
    std::string version;
    std::vector<Emporium::Package> packages;
    std::vector<Emporium::Operation> active;
    std::vector<Emporium::Operation> completed;
};

/// Keeps the last operation of each UUID: cached operations come before the daemon's own, which are
/// newer.
std::vector<Emporium::Operation>
LatestOfEachUUID(const std::vector<Emporium::Operation>& operations);

} // namespace EmporiumCtl
