// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <sstream>

namespace Common {

enum class LogLevel : std::int32_t
{
    Info = 0,    ///< Written with the prefix "[I] ".
    Warning = 1, ///< Written with the prefix "[W] ".
    Error = 2,   ///< Written with the prefix "[E] ".
};

/// One line on standard output, written when the object goes.
///
///     LogMessage(LogLevel::Warning) << "Couldn't create " << path;
///
/// Nothing is written if nothing, or only empty text, was inserted. The text is written as it is,
/// whatever it contains; the line is flushed at once. A message that an exception interrupts is
/// still written, as far as it had come. Each object belongs to one thread; lines written by
/// several threads at the same moment may interleave.
class LogMessage
{
public:
    explicit LogMessage(LogLevel level);
    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    /// Writes the line. An exception on the way ends the process.
    ~LogMessage();

    template <typename T>
    LogMessage& operator<<(const T& value)
    {
        m_text << value;
        return *this;
    }

private:
    LogLevel m_level;
    std::stringstream m_text;
};

} // namespace Common
