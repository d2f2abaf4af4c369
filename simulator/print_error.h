// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <iostream>
#include <string>

namespace Simulator {

/// Writes the line to standard error unchanged. g_printerr() would replace characters that the locale
/// cannot show, such as a letter in a path.
inline void PrintError(const std::string& text)
{
    std::cerr << "emporium-simulator: " << text << '\n';
}

} // namespace Simulator
