// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/emporium.h>

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

namespace EmporiumCtl {

enum class Colour
{
    None,
    Bold,
    Green,
    Red
};

/// The program's output and its form: JSON for programs, or text for people. On a terminal, text fits
/// the width, has colours unless NO_COLOR is set, and may be redrawn.
struct Output
{
    std::ostream& stream;
    bool json = false;
    bool terminal = false;
    bool coloured = false;
    std::size_t columns = 0; ///< 0 if lines may have any length.

    /// The text in this colour, or unchanged without colours.
    std::string Paint(Colour colour, const std::string& text) const;

    /// The text, cut to the width of the terminal.
    std::string Fit(const std::string& text) const;
};

/// Returns the program's own standard output and redirects descriptor 1 to standard error: the
/// library writes its log lines to descriptor 1, where they would end up in the middle of a table.
Output TakeOverStandardOutput(bool json);

/// Text from the daemon with control characters written as \xNN.
std::string Printable(const std::string& text);

/// Prints rows in columns as wide as their widest entry, or narrower to fit the terminal. The first row
/// is the heading.
void PrintTable(const Output& out, const std::vector<std::vector<std::string>>& rows);

std::string NameOf(Common::OperationType type);

/// "succeeded", "failed", or the number that the daemon sent.
std::string NameOf(Common::OperationStatus status);

/// The short name and the message of an error code.
std::string Describe(Common::ErrorCode code);

} // namespace EmporiumCtl
