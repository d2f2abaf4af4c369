// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/table.h"

#include "text/printable.h"

#include <glib.h>

#include <algorithm>
#include <numeric>

namespace EmporiumCtl {
namespace {

constexpr std::size_t gap = 2;

std::string LowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char letter) { return g_ascii_tolower(letter); });
    return text;
}

std::size_t Position(const Row& heading, const std::string& column)
{
    const auto found = std::find_if(heading.begin(), heading.end(), [&](const std::string& name) {
        return LowerCase(name) == column;
    });
    return static_cast<std::size_t>(found - heading.begin());
}

std::vector<std::size_t> Selected(const Row& heading, const std::vector<std::string>& columns)
{
    std::vector<std::size_t> positions(columns.empty() ? heading.size() : columns.size());
    if (columns.empty()) {
        std::iota(positions.begin(), positions.end(), 0);
    } else {
        std::transform(columns.begin(), columns.end(), positions.begin(),
                       [&](const std::string& column) { return Position(heading, column); });
    }
    return positions;
}

Row Cells(const Row& row, const std::vector<std::size_t>& positions, Text::Letters letters)
{
    Row cells;
    for (const std::size_t position : positions) {
        cells.push_back(Text::Printable(row[position], letters));
    }
    return cells;
}

/// Columns as wide as their entries. On a narrower terminal, the widest column shrinks first.
std::vector<std::size_t> Widths(const std::vector<Row>& rows, std::size_t limit)
{
    std::vector<std::size_t> widths(rows.empty() ? 0 : rows.front().size());
    for (const Row& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], Text::Columns(row[column]));
        }
    }
    std::size_t total = gap * (std::max<std::size_t>(widths.size(), 1) - 1);
    total = std::accumulate(widths.begin(), widths.end(), total);
    while (total > limit) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (widest == widths.end() || *widest <= 1) {
            break;
        }
        --*widest;
        --total;
    }
    return widths;
}

std::string Joined(const Row& row, const std::vector<std::size_t>& widths, Text::Letters letters)
{
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
        const std::string cell = Text::Shorten(row[column], widths[column], letters);
        line += cell;
        if (column + 1 < row.size()) {
            line += std::string(widths[column] - Text::Columns(cell) + gap, ' ');
        }
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

} // namespace

void PrintTable(Output& out, const Row& heading, const std::vector<Row>& rows,
                const TableLayout& layout)
{
    const std::vector<std::size_t> positions = Selected(heading, layout.columns);
    std::vector<Row> lines;
    if (layout.heading) {
        lines.push_back(Cells(heading, positions, out.Letters()));
    }
    for (const Row& row : rows) {
        lines.push_back(Cells(row, positions, out.Letters()));
    }
    const std::size_t noLimit = std::string::npos;
    const auto widths = Widths(lines, out.OnTerminal() ? out.Window().columns : noLimit);
    for (std::size_t line = 0; line < lines.size(); ++line) {
        const bool isHeading = layout.heading && line == 0;
        out.Line(Joined(lines[line], widths, out.Letters()),
                 isHeading ? Colour::Bold : Colour::None);
    }
}

} // namespace EmporiumCtl
