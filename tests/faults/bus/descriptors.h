// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <sys/resource.h>

namespace TestSupport {

inline std::ptrdiff_t OpenDescriptors()
{
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return std::distance(begin(entries), end(entries)) - 1; // without that of the iterator
}

/// Lets the process open only this many further descriptors while the object lives.
class DescriptorLimit
{
public:
    explicit DescriptorLimit(unsigned further)
    {
        getrlimit(RLIMIT_NOFILE, &m_former);
        rlimit lower = m_former;
        lower.rlim_cur = FreeNumber(further);
        setrlimit(RLIMIT_NOFILE, &lower);
    }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &m_former); }

private:
    /// The number that the last allowed descriptor does not reach. The limit is one of numbers.
    static rlim_t FreeNumber(unsigned further)
    {
        rlim_t number = 0;
        while (IsOpen(number) || further-- > 0) {
            ++number;
        }
        return number;
    }

    static bool IsOpen(rlim_t number)
    {
        return std::filesystem::exists(
            std::filesystem::symlink_status("/proc/self/fd/" + std::to_string(number)));
    }

    rlimit m_former{};
};

} // namespace TestSupport
