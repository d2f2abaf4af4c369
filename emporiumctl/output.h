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

/// Where the program's output goes, and in which form: JSON for programs, or text for people, which
/// on a terminal fits its width, has colours unless NO_COLOR is set, and may be drawn over.
struct Output
{
    std::ostream& stream;
    bool json = false;
    bool terminal = false;
    bool coloured = false;
    std::size_t columns = 0; ///< 0 if lines may have any length.

    /// The text in this colour, or as it is.
    std::string Paint(Colour colour, const std::string& text) const;

    /// The text as it fits the width.
    std::string Fit(const std::string& text) const;
};

/// The program's own standard output. The library writes its log lines to descriptor 1, where they
/// would end up in the middle of a table; from here on that descriptor leads to standard error.
Output TakeOverStandardOutput(bool json);

/// Text from the daemon as it can be shown: what would control a terminal is written as \xNN.
std::string Printable(const std::string& text);

/// Rows in columns that are as wide as their widest entry, or narrower where the terminal is. The
/// first row is the heading.
void PrintTable(const Output& out, const std::vector<std::vector<std::string>>& rows);

std::string NameOf(Common::OperationType type);

/// "succeeded", "failed", or the number that the daemon sent.
std::string NameOf(Common::OperationStatus status);

/// The short name and the message of an error code.
std::string Describe(Common::ErrorCode code);

} // namespace EmporiumCtl
