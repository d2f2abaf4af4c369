// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/bus_error.h"
#include "simulator/bus/variant.h"

#include <deque>
#include <map>
#include <string>
#include <vector>

namespace Simulator {

struct QueuedSignal
{
    std::string name;
    Variant body;
};

/// The faults that are prepared for one method, and the record of its calls.
struct MethodScript
{
    unsigned calls = 0;
    std::string lastArgument;
    std::map<unsigned, BusError> errors; ///< by the number of the call
    std::deque<Variant> replies;
    std::vector<QueuedSignal> signals;
    unsigned delay = 0;
    bool exits = false;
};

/// Everything that makes the daemon misbehave; set through the control interface.
struct InjectedFaults
{
    std::map<std::string, MethodScript> methods;
    std::map<std::string, Variant> properties; ///< an empty value drops the property
};

} // namespace Simulator
