// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <limits>

/// A program that links counted_allocations.cpp has all its `operator new` calls counted here.
namespace TestSupport {

inline std::size_t allocations = 0;
inline std::size_t bytesInUse = 0;

/// So many more allocations succeed; all later ones fail.
constexpr std::size_t unlimited = std::numeric_limits<std::size_t>::max();
inline std::size_t allocationsLeft = unlimited;

} // namespace TestSupport
