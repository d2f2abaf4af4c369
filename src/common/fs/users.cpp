// SPDX-License-Identifier: BSD-3-Clause
#include "common/fs/users.h"

#include <common/error.h>

#include "common/fs/entry_tests.h"
#include "common/fs/paths.h"

#include <grp.h>

namespace Common {

std::vector<std::filesystem::path> GetUsersHomeDirectories()
{
    const std::filesystem::path base = GetRootPath() / "home";
    const group* const users = getgrnam("users");
    if (users == nullptr) {
        throw Error(make_error_code(ErrorCode::Internal),
                    "Couldn't retrieve information about 'users' group");
    }
    if (users->gr_mem == nullptr) {
        throw Error(make_error_code(ErrorCode::Internal), "Couldn't retrieve list of system users");
    }
    std::vector<std::filesystem::path> homes;
    for (char** member = users->gr_mem; *member != nullptr; ++member) {
        std::filesystem::path home = base / *member;
        if (Exists(home)) {
            homes.push_back(std::move(home));
        }
    }
    return homes;
}

} // namespace Common
