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

struct RecordedEvent
{
    double offsetMilliseconds = 0;
    std::variant<Operation, PackageArrival, PackageRemoval> content;
};

/// A recording as "emporiumctl record" writes it: lines of JSON, the snapshot first and then the
/// events.
struct Recording
{
    Catalogue snapshot;
    std::vector<RecordedEvent> events;
};

/// @throws InputError naming the line; std::system_error when the file cannot be read
Recording ReadRecording(const std::string& path);

} // namespace Simulator
