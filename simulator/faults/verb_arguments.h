// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/bus_error.h"
#include "simulator/bus/variant.h"

#include <string>

namespace Simulator {

/// Parses the arguments of a verb of the control interface: GVariant text format with commas between
/// them. A last argument that has a usual value may be missing, and an error may be given by its name or
/// its number.
/// @throws std::invalid_argument with the reason; also if there is no such verb
Variant ParseArguments(const std::string& verb, const std::string& text);

/// The message about a verb that does not exist.
std::string UnknownVerb(const std::string& verb);

/// Checks everything that can be checked before a verb is executed: names, bodies, error codes.
/// @throws BusError
void CheckArguments(const std::string& verb, GVariant* arguments);

/// The error reply with this name, short name, or number.
/// @throws BusError if there is no such error
BusError ErrorOf(const std::string& name, const std::string& message);

} // namespace Simulator
