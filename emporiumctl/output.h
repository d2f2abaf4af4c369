// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/emporium.h>

#include <iosfwd>
#include <string>
#include <vector>

namespace EmporiumCtl {

/// Where the program's output goes, and in which form: for people, or JSON for programs.
struct Output
{
    std::ostream& stream;
    bool json = false;
};

/// The program's own standard output. The library writes its log lines to descriptor 1, where they
/// would end up in the middle of a table; from here on that descriptor leads to standard error.
std::ostream& TakeOverStandardOutput();

/// Text from the daemon as it can be shown: what would control a terminal is written as \xNN.
std::string Printable(const std::string& text);

/// Rows in columns that are as wide as their widest entry. The first row is the heading.
void PrintTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows);

std::string NameOf(Common::OperationType type);

/// "succeeded", "failed", or the number that the daemon sent.
std::string NameOf(Common::OperationStatus status);

/// The short name and the message of an error code.
std::string Describe(Common::ErrorCode code);

} // namespace EmporiumCtl
