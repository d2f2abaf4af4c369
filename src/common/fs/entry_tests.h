// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>

namespace Common {

// All of these return false for a missing entry, and log nothing. Any other failure (an
// unsearchable parent, links that loop) is logged and also returns false. All but IsSymlink()
// follow links.

bool Exists(const std::filesystem::path& path);
bool IsDirectory(const std::filesystem::path& path);
bool IsRegularFile(const std::filesystem::path& path);
bool IsSocket(const std::filesystem::path& path);

/// Does not follow the link, so it is true for a dangling one.
bool IsSymlink(const std::filesystem::path& path);

/// True if the directory has no entries; a failure to read it is logged and returns false. Throws
/// "Attempt to check if the path is an empty directory, but the path is not a directory" where
/// IsDirectory() is false.
bool IsEmptyDirectory(const std::filesystem::path& path);

} // namespace Common
