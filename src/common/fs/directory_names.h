// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cerrno>
#include <dirent.h>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace Common {

/// Returns the names of a directory's entries, up to the first failure. For callers that must survive
/// a lack of memory, at which the standard library's iterator ends the process.
inline std::vector<std::string> DirectoryNames(const std::string& path, std::error_code& failure)
{
    struct Close
    {
        void operator()(DIR* listing) const { ::closedir(listing); }
    };
    std::vector<std::string> names;
    errno = 0;
    const std::unique_ptr<DIR, Close> listing(::opendir(path.c_str()));
    while (const dirent* const entry = listing ? ::readdir(listing.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    failure = std::error_code(errno, std::generic_category());
    return names;
}

} // namespace Common
