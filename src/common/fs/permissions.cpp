// SPDX-License-Identifier: BSD-3-Clause
#include "common/fs/permissions.h"

#include "common/fs/failure.h"

namespace Common {

namespace fs = std::filesystem;

bool HasPermissions(const fs::path& path, fs::perms mask)
{
    return Wrapped(
        [&] {
            // Not IsRegularFile(): it would hide a failure.
            if (!fs::is_regular_file(fs::status(path))) {
                return false;
            }
            return (fs::status(path).permissions() & mask) != fs::perms::none;
        },
        [&] { return "Couldn't get permissions for: " + path.native(); });
}

void SetPermissions(const fs::path& path, fs::perms permissions)
{
    Wrapped([&] { fs::permissions(path, permissions, fs::perm_options::replace); },
            [&] { return "Couldn't set permissions for " + path.native(); });
}

} // namespace Common
