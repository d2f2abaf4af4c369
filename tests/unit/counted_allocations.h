// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <limits>

/// Counts all calls of `operator new` in a program that links counted_allocations.cpp.
namespace TestSupport {

inline std::size_t allocations = 0;
inline std::size_t bytesInUse = 0;

/// This many more allocations succeed; then all fail, or only the next one if `failsOnce` is set.
constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();
inline std::size_t allocationsLeft = unlimited;
inline bool failsOnce = false;

} // namespace TestSupport
