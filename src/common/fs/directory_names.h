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

/// The names of a directory's entries, or what could be read until `failure`. For callers that must
/// survive a lack of memory: the iterator of the standard library ends the process then.
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
