// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/files/catalogue.h"

#include <string>
#include <variant>
#include <vector>

namespace Simulator {

struct PackageRemoval
{
    std::string id;
};

struct PackageArrival
{
    Package package;
    bool upgrade = false;
};

/// The daemon left the bus.
struct DaemonLoss
{
};

/// The daemon came back, with these lists.
struct DaemonReturn
{
    Catalogue lists;
};

struct RecordedEvent
{
    double offsetMilliseconds = 0;
    std::variant<Operation, PackageArrival, PackageRemoval, DaemonLoss, DaemonReturn> content;
};

/// A recording as "emporiumctl record" writes it: lines of JSON, the snapshot first and then the
/// events.
struct Recording
{
    Catalogue snapshot;
    std::vector<RecordedEvent> events;
    bool cut = false; ///< the last line was incomplete, and is left out
};

/// @throws InputError naming the line; std::system_error when the file cannot be read
Recording ReadRecording(const std::string& path);

} // namespace Simulator
