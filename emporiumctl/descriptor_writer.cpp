// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/descriptor_writer.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace EmporiumCtl {

void OccupyStandardDescriptors()
{
    for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
        if (fcntl(number, F_GETFD) < 0) {
            // The lowest number that is free is this one.
            static_cast<void>(open("/dev/null", number == STDERR_FILENO ? O_WRONLY : O_RDONLY));
        }
    }
}

bool DescriptorWriter::Flush()
{
    std::string_view rest = m_pending;
    while (Good() && !rest.empty()) {
        const ssize_t written = write(m_descriptor, rest.data(), rest.size());
        if (written >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd writable{m_descriptor, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            m_error = errno;
        }
    }
    m_pending.clear();
    return Good();
}

bool DescriptorWriter::Finish()
{
    if (Flush()) {
        const int copy = dup(m_descriptor);
        if (copy < 0 || close(copy) < 0) {
            m_error = errno;
        }
    }
    return Good();
}

std::string DescriptorWriter::Error() const
{
    return std::generic_category().message(m_error);
}

} // namespace EmporiumCtl
