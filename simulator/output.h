// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string_view>

namespace Simulator {

/// Opens /dev/null in place of closed standard descriptors, so that no other file gets their numbers.
/// Writing to one that was closed still fails.
void OpenStandardDescriptors();

/// True if the standard output was closed when the program started.
bool IsOutputClosed();

/// Writes the text to the standard output.
/// @throws std::system_error
void Print(std::string_view text);

} // namespace Simulator
