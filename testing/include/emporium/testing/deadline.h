// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <chrono>

namespace Emporium::Testing {

/// How long the kit waits for what must happen, unless a function is given another time. It only
/// decides how soon a test fails that can no longer pass, so it suits a busy machine.
constexpr std::chrono::milliseconds defaultDeadline = std::chrono::seconds(90);

} // namespace Emporium::Testing
