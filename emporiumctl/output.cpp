// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/output.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ostream>
#include <streambuf>
#include <unistd.h>

namespace EmporiumCtl {
namespace {

/// Writes to a descriptor; whole lines leave at once.
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

} // namespace

std::ostream& TakeOverStandardOutput()
{
    static DescriptorBuffer buffer([] {
        const int own = dup(STDOUT_FILENO);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        return own;
    }());
    static std::ostream out(&buffer);
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

void PrintTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows)
{
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto& row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], Printable(row[column]).size());
        }
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            std::string cell = Printable(row[column]);
            cell.resize(widths[column] + 2, ' ');
            line += cell;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out << line << '\n';
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
