// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "text/printable.h"

#include <unistd.h>

#include <iostream>
#include <string>
#include <string_view>

namespace Simulator {

/// Writes the line to standard error, with the program's name, so that it cannot control a terminal.
/// g_printerr() would also replace letters that the locale cannot show, such as those in a path.
inline void PrintError(std::string_view text)
{
    std::cerr << "emporium-simulator: " + Text::Printable(text, Text::LettersFor(STDERR_FILENO)) +
                     "\n";
}

} // namespace Simulator
