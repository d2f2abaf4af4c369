// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <vector>

namespace Common {

/// The homes of the device's ordinary users: for each member of the group "users", in the group's
/// order, the directory of that name in "home" under GetRootPath(), if it exists (links are
/// followed). Never the home that the password database names; users who have the group as their
/// primary one only are not among its members.
///
/// Throws ErrorCode::Internal: "Couldn't retrieve information about 'users' group" if there is no
/// such group, "Couldn't retrieve list of system users" if its record has no list at all. Must not
/// run at the same time as another look-up in the group database.
std::vector<std::filesystem::path> GetUsersHomeDirectories();

} // namespace Common
