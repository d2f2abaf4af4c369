// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <string>

namespace Simulator {

/// Reads a regular file in UTF-8 without zero bytes. Never blocks on a FIFO and never reads
/// more than the limit.
/// @throws std::system_error when the file cannot be opened or read; InputError for other content.
std::string ReadTextFile(const std::string& path, std::size_t limit);

} // namespace Simulator
