// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>

namespace Common {

/// True if the path leads to a regular file that has **any** of the mask's permission bits. False
/// for any other entry, and for a missing one. Follows links.
///
/// Another failure is logged and thrown as "Couldn't get permissions for: " and the path.
bool HasPermissions(const std::filesystem::path& path, std::filesystem::perms mask);

/// Replaces the permission bits of the entry that the path leads to. Follows links.
///
/// A failure is logged and thrown as "Couldn't set permissions for " and the path.
void SetPermissions(const std::filesystem::path& path, std::filesystem::perms permissions);

} // namespace Common
