// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/log_lines.h"

#include "emporiumctl/output.h"

#include <iostream>
#include <utility>

namespace EmporiumCtl {

LogLines& LogLines::Get()
{
    static LogLines lines;
    return lines;
}

LogLines::LogLines() : m_original(std::cout.rdbuf(&m_buffer)) {}

LogLines::~LogLines()
{
    // The C++ library flushes std::cout later.
    std::cout.rdbuf(m_original);
}

std::vector<std::string> LogLines::TakeErrors()
{
    return std::exchange(m_errors, {});
}

void LogLines::Add(const std::string& line)
{
    const std::string errorLevel = "[E] ";
    if (line.rfind(errorLevel, 0) == 0) {
        m_errors.push_back(line.substr(errorLevel.size()));
    }
    if (m_verbose) {
        Complain(line);
    }
}

LogLines::Buffer::int_type LogLines::Buffer::overflow(int_type character)
{
    if (character == '\n') {
        m_lines.Add(std::exchange(m_line, {}));
    } else if (character != traits_type::eof()) {
        m_line += traits_type::to_char_type(character);
    }
    return traits_type::not_eof(character);
}

} // namespace EmporiumCtl
