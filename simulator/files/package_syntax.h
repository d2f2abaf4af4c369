// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>

namespace Simulator {

/// True for dotted names such as org.example.calculator, by the rules for desktop application IDs.
bool IsPackageId(const std::string& id);

/// True for numbers with dots between them and at most one suffix after a "-": 1.2.0, 1.2.0-rc1.
bool IsPackageVersion(const std::string& version);

} // namespace Simulator
