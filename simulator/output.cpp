// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Simulator {

namespace {

bool outputClosed = false;

} // namespace

void OpenStandardDescriptors()
{
    outputClosed = fcntl(STDOUT_FILENO, F_GETFD) < 0;
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) {
            // The lowest free number is this one. Reading from the input fails, and writing to the others.
            open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

bool IsOutputClosed()
{
    return outputClosed;
}

void Print(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(STDOUT_FILENO, text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(),
                                    "cannot write to the standard output");
        }
    }
}

} // namespace Simulator
