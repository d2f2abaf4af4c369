// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

namespace Simulator {

/// An error in a file that the user gave. Line 0 means the file as a whole.
class InputError : public std::runtime_error
{
public:
    InputError(const std::string& file, std::size_t line, const std::string& text)
        : std::runtime_error(file + (line != 0 ? ":" + std::to_string(line) : "") + ": " + text)
    {
    }
};

} // namespace Simulator
