// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/fs/file_descriptor.h"

#include <emporium/testing/deadline.h>

#include <array>
#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Emporium::Testing {

/// A child process whose standard output is read line by line and whose standard error is kept.
/// Terminates it on destruction. It ends with the thread that started it.
class ChildProcess
{
public:
    /// @throws Error
    explicit ChildProcess(std::vector<std::string> arguments);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// Returns the next line of output, or what remains at its end.
    /// @throws DeadlineExceeded
    std::string ReadLine(std::chrono::milliseconds deadline = defaultDeadline);

    /// Sends the signal and waits for the end of the process.
    void End(int signal);
    void Suspend();
    void Resume();

    /// True if the process has ended by itself. It can still be waited for.
    bool HasEnded() const;

    /// Waits for the end of the process and returns its status; -1 if it was waited for before.
    int Wait();

    std::string Errors() const;

private:
    ChildProcess(std::vector<std::string> arguments, std::array<int, 2> output);

    pid_t m_pid = -1;
    bool m_suspended = false;
    Common::FileDescriptor m_errors;
    Common::FileDescriptor m_output;
};

} // namespace Emporium::Testing
