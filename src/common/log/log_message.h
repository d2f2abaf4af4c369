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

/// One line on standard output, written by the destructor.
///
///     LogMessage(LogLevel::Warning) << "Couldn't create " << path;
///
/// Writes nothing if nothing, or only empty text, was inserted. The text is written unchanged and
/// flushed at once. If an exception interrupts the message, the part inserted so far is written.
/// Each object belongs to one thread; lines of several threads may interleave.
class LogMessage
{
public:
    explicit LogMessage(LogLevel level);
    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    /// Writes the line. An exception during that ends the process.
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
