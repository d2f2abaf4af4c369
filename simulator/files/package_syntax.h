// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>

namespace Simulator {

/// Dotted, such as org.example.calculator: the rule of application IDs on the desktop.
bool IsPackageId(const std::string& id);

/// Numbers with dots between them, and at most one suffix after a "-": 1.2.0, 1.2.0-rc1.
bool IsPackageVersion(const std::string& version);

} // namespace Simulator
