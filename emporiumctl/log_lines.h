// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <streambuf>
#include <string>
#include <vector>

namespace EmporiumCtl {

/// Catches the library's log lines, which it writes to std::cout: they would end up in the middle of a
/// table. They tell why a snapshot could not be loaded.
class LogLines
{
public:
    /// The lines of the process. Must be called before the library is used, whose statics write lines
    /// until they are destroyed.
    static LogLines& Get();

    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    /// Writes the lines to standard error as well.
    void SetVerbose() { m_verbose = true; }

    /// The texts of the errors since the last call, without their level.
    std::vector<std::string> TakeErrors();

private:
    class Buffer : public std::streambuf
    {
    public:
        explicit Buffer(LogLines& lines) : m_lines(lines) {}

    protected:
        int_type overflow(int_type character) override;

    private:
        LogLines& m_lines;
        std::string m_line;
    };

    LogLines();
    ~LogLines();
    void Add(const std::string& line);

    bool m_verbose = false;
    std::vector<std::string> m_errors;
    Buffer m_buffer{*this};
    std::streambuf* m_original;
};

} // namespace EmporiumCtl
