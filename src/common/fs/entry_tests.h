// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>

namespace Common {

// A missing entry is no failure: these answer false for it and log nothing. Any other failure (an
// unsearchable parent, links that loop) is logged, and the answer is false. All but IsSymlink()
// follow links.

bool Exists(const std::filesystem::path& path);
bool IsDirectory(const std::filesystem::path& path);
bool IsRegularFile(const std::filesystem::path& path);
bool IsSocket(const std::filesystem::path& path);

/// Looks at the entry itself, so it is true for a dangling link.
bool IsSymlink(const std::filesystem::path& path);

/// True if the directory has no entries; a failure to look is logged and answered with false.
/// Throws "Attempt to check if the path is an empty directory, but the path is not a directory"
/// for anything that IsDirectory() denies.
bool IsEmptyDirectory(const std::filesystem::path& path);

} // namespace Common
