// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <algorithm>
#include <chrono>
#include <limits>
#include <string>

namespace Emporium::Testing {

/// As GLib and D-Bus take them: not negative, and no more than an int holds.
inline unsigned Milliseconds(std::chrono::milliseconds duration)
{
    constexpr std::chrono::milliseconds longest(std::numeric_limits<int>::max());
    return static_cast<unsigned>(std::clamp(duration, {}, longest).count());
}

inline std::string Text(std::chrono::milliseconds duration)
{
    return std::to_string(duration.count()) + " ms";
}

} // namespace Emporium::Testing
