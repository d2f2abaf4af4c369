// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "glib_ptr.h"

#include <string>

namespace Simulator {

/// Dotted, such as org.example.calculator: the rule of application IDs on the desktop.
bool IsPackageId(const std::string& id);

/// Numbers with dots between them, and at most one suffix after a "-": 1.2.0, 1.2.0-rc1.
bool IsPackageVersion(const std::string& version);

/// Less than, equal to or greater than 0, as the left version is older, the same or newer.
int CompareVersions(const std::string& left, const std::string& right);

/// A value in GVariant text format that can travel on the bus.
/// @throws std::invalid_argument saying what is wrong
Variant ParseBusValue(const std::string& text);

/// The body of a message in the same format: a tuple, or an empty text for no arguments.
/// @throws std::invalid_argument saying what is wrong
Variant ParseBody(const std::string& text);

} // namespace Simulator
