// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/fs/file_descriptor.h"

#include <fcntl.h>
#include <unistd.h>

namespace Common {

/// Occupies the numbers of standard input, output and error while this object lives, if they are
/// closed. Otherwise a file opened meanwhile would get such a number, and log lines would be written
/// into it.
class StandardDescriptorsTaken
{
    static int Take(int number)
    {
        const bool isClosed = ::fcntl(number, F_GETFD) < 0;
        return isClosed ? ::open("/dev/null", O_RDWR | O_CLOEXEC) : -1;
    }

    // In ascending order, because open() returns the lowest free number.
    FileDescriptor m_input{Take(STDIN_FILENO)};
    FileDescriptor m_output{Take(STDOUT_FILENO)};
    FileDescriptor m_error{Take(STDERR_FILENO)};
};

} // namespace Common
