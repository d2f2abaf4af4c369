// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/output.h"

#include <optional>
#include <string>
#include <vector>

namespace EmporiumCtl {

/// Which part of a table is printed. Columns are given by their headings in lower case.
struct TableLayout
{
    std::vector<std::string> columns;    ///< Empty: all.
    std::optional<std::string> sortedBy; ///< The caller sorts.
    bool heading = true;
};

using Row = std::vector<std::string>;

/// Prints rows in columns as wide as their widest entry, or narrower to fit the terminal.
void PrintTable(Output& out, const Row& heading, const std::vector<Row>& rows,
                const TableLayout& layout);

} // namespace EmporiumCtl
