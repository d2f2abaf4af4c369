// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "common/fs/file_descriptor.h"

#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace Common {

/// Keeps the numbers of standard input, output and error out of use while this object lives, if they
/// are closed. What is opened meanwhile would get them, and log lines would be written into it.
class StandardDescriptorsTaken
{
public:
    StandardDescriptorsTaken()
    {
        for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
            if (::fcntl(number, F_GETFD) < 0) {
                m_taken.emplace_back(::open("/dev/null", O_RDWR | O_CLOEXEC));
            }
        }
    }

private:
    std::vector<FileDescriptor> m_taken;
};

} // namespace Common
