// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

namespace Simulator {

/// "; did you mean X?" with the name that is most like the mistyped one, or nothing if none is.
std::string Suggestion(const std::string& mistyped, const std::vector<std::string>& names);

} // namespace Simulator
