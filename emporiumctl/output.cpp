// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ostream>
#include <streambuf>
#include <sys/ioctl.h>
#include <unistd.h>

namespace EmporiumCtl {
namespace {

/// Writes to a descriptor; flushes each line.
class DescriptorBuffer : public std::streambuf
{
public:
    explicit DescriptorBuffer(int descriptor) : m_file(fdopen(descriptor, "w"))
    {
        setvbuf(m_file, nullptr, _IOLBF, BUFSIZ);
    }

protected:
    int_type overflow(int_type character) override
    {
        return character == traits_type::eof() ? traits_type::not_eof(character)
                                               : std::fputc(character, m_file);
    }

    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        return static_cast<std::streamsize>(
            std::fwrite(text, 1, static_cast<std::size_t>(size), m_file));
    }

    int sync() override { return std::fflush(m_file); }

private:
    std::FILE* m_file;
};

constexpr std::size_t gap = 2;

/// The number of characters: counts the bytes that do not continue one.
std::size_t Length(const std::string& text)
{
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char character) {
        return (static_cast<unsigned char>(character) & 0xc0) != 0x80;
    }));
}

/// Cuts the text to this many characters; an ellipsis replaces the last one.
std::string Shorten(const std::string& text, std::size_t length)
{
    if (Length(text) <= length) {
        return text;
    }
    std::string shortened;
    for (const char character : text) {
        const bool begins = (static_cast<unsigned char>(character) & 0xc0) != 0x80;
        if (begins && Length(shortened) + 1 >= length) {
            break;
        }
        shortened += character;
    }
    return shortened + "\u2026";
}

/// Columns as wide as their entries. On a narrower terminal, the widest column shrinks first.
std::vector<std::size_t> Widths(const std::vector<std::vector<std::string>>& rows,
                                std::size_t columns)
{
    std::vector<std::size_t> widths(rows.front().size());
    std::size_t total = 0;
    for (std::size_t column = 0; column < widths.size(); ++column) {
        for (const auto& row : rows) {
            widths[column] = std::max(widths[column], Length(Printable(row[column])));
        }
        total += widths[column] + (column > 0 ? gap : 0);
    }
    while (columns > 0 && total > columns) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (*widest == 1) {
            break;
        }
        --*widest;
        --total;
    }
    return widths;
}

} // namespace

std::string Output::Paint(Colour colour, const std::string& text) const
{
    if (!coloured || colour == Colour::None) {
        return text;
    }
    const char* const code = colour == Colour::Bold ? "1" : colour == Colour::Green ? "32" : "31";
    return std::string("\033[") + code + "m" + text + "\033[0m";
}

std::string Output::Fit(const std::string& text) const
{
    return columns == 0 ? text : Shorten(text, columns);
}

Output TakeOverStandardOutput(bool json)
{
    static const int own = dup(STDOUT_FILENO);
    static DescriptorBuffer buffer(own);
    static std::ostream stream(&buffer);
    dup2(STDERR_FILENO, STDOUT_FILENO);

    Output out{stream};
    out.json = json;
    out.terminal = !json && isatty(own) != 0;
    const char* const noColour = std::getenv("NO_COLOR");
    out.coloured = out.terminal && (noColour == nullptr || *noColour == '\0');
    winsize size{};
    if (out.terminal && ioctl(own, TIOCGWINSZ, &size) == 0) {
        out.columns = size.ws_col;
    }
    return out;
}

std::string Printable(const std::string& text)
{
    std::string printable;
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (code < 0x20 || code == 0x7f) {
            std::array<char, 5> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02x", code);
            printable += escape.data();
        } else {
            printable += character;
        }
    }
    return printable;
}

void PrintTable(const Output& out, const std::vector<std::vector<std::string>>& rows)
{
    const std::vector<std::size_t> widths = Widths(rows, out.columns);
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            const std::string cell = Shorten(Printable(row[column]), widths[column]);
            line += cell + std::string(widths[column] - Length(cell) + gap, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        const bool isHeading = &row == &rows.front();
        out.stream << out.Paint(isHeading ? Colour::Bold : Colour::None, line) << '\n';
    }
}

std::string NameOf(Common::OperationType type)
{
    switch (type) {
    case Common::OperationType::Install:
        return "install";
    case Common::OperationType::Upgrade:
        return "upgrade";
    case Common::OperationType::Remove:
        return "remove";
    }
    return std::to_string(static_cast<int>(type));
}

std::string NameOf(Common::OperationStatus status)
{
    switch (status) {
    case Common::OperationStatus::Succeeded:
        return "succeeded";
    case Common::OperationStatus::Failed:
        return "failed";
    default:
        return std::to_string(static_cast<int>(status));
    }
}

std::string Describe(Common::ErrorCode code)
{
    return Common::ErrorCodeHelper(static_cast<int>(code)).errorCodeAsString() + ": " +
           Common::make_error_code(code).message();
}

} // namespace EmporiumCtl
