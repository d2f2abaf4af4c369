// SPDX-License-Identifier: BSD-3-Clause
#include "common/log/log_message.h"

#include <iostream>
#include <locale>

namespace Common {
namespace {

const char* Prefix(LogLevel level)
{
    switch (level) {
    case LogLevel::Info:
        return "[I] ";
    case LogLevel::Warning:
        return "[W] ";
    case LogLevel::Error:
        return "[E] ";
    }
    return "";
}

} // namespace

LogMessage::LogMessage(LogLevel level) : m_level(level)
{
    m_text.imbue(std::locale::classic()); // the application's locale may group digits
}

LogMessage::~LogMessage()
{
    // Not greater than zero: nothing was inserted, or the stream has failed and returns -1.
    if (m_text.tellp() <= 0) {
        return;
    }
    std::cout << Prefix(m_level);
    std::cout << m_text.view(); // a copy could fail, and a destructor must not
    std::cout << '\n' << std::flush;
}

} // namespace Common
