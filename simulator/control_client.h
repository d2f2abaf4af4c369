// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

namespace Simulator {

/// Calls a verb of the simulator on the session bus and prints the values of its reply, one on each line.
/// @param arguments the verb and its arguments. A text is written as it is, other values in GVariant text
/// format.
/// @return the exit status
/// @throws UsageError, NoBus
int RunControlClient(const std::vector<std::string>& arguments);

} // namespace Simulator
