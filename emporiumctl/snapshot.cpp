// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/snapshot.h"

#include <algorithm>
#include <unordered_set>

namespace EmporiumCtl {

using Emporium::Operation;

Snapshot::Snapshot(const Emporium::DaemonConnection& connection)
    : architecture(connection.GetArchitecture()), version(connection.GetVeyraVersion()),
      packages(connection.GetPackageList()), active(connection.GetActiveOperations()),
      completed(connection.GetCompletedOperations())
{
}

const Operation* Snapshot::Find(const std::string& uuid) const
{
    const auto hasUuid = [&](const Operation& operation) { return operation.GetUUID() == uuid; };
    const auto running = std::find_if(active.begin(), active.end(), hasUuid);
    if (running != active.end()) {
        return &*running;
    }
    const auto ended = std::find_if(completed.rbegin(), completed.rend(), hasUuid);
    return ended != completed.rend() ? &*ended : nullptr;
}

std::vector<Operation> LatestOfEachUUID(const std::vector<Operation>& operations)
{
    std::unordered_set<std::string> seen;
    std::vector<Operation> once;
    for (auto operation = operations.rbegin(); operation != operations.rend(); ++operation) {
        if (seen.insert(operation->GetUUID()).second) {
            once.push_back(*operation);
        }
    }
    std::reverse(once.begin(), once.end());
    return once;
}

} // namespace EmporiumCtl
