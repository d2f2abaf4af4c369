// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <string>

namespace Simulator {

/// The name that stands for the standard input where ReadStream() is used.
inline constexpr const char* standardInput = "-";

/// Reads a regular file in UTF-8 without zero bytes. Never blocks on a FIFO and never reads
/// more than the limit.
/// @throws std::system_error when the file cannot be opened or read; InputError for other content.
std::string ReadTextFile(const std::string& path, std::size_t limit);

/// The same for a file that the user named: reads anything that has an end, a FIFO or "-" too.
std::string ReadStream(const std::string& path, std::size_t limit);

/// The same, without the check of the content.
std::string ReadStreamUnchecked(const std::string& path, std::size_t limit);

/// @throws InputError naming the line, if the content is not UTF-8 text without zero bytes
void RequireText(const std::string& path, const std::string& content);

} // namespace Simulator
