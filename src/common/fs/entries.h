// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <vector>

namespace Common {

// Each of these logs the cause of a failure and throws with the quoted message.

/// Removes an entry, **a directory with its whole content**. A missing entry is no failure. Links
/// are not followed. "Couldn't remove filesystem entry: PATH"
void Remove(const std::filesystem::path& path);

/// Creates a directory and its parents. An existing one is no failure. "Couldn't create directory:
/// PATH"
void CreateDirectories(const std::filesystem::path& path);

/// The text of the link, unchanged. "Couldn't read symlink: PATH"
std::filesystem::path ReadSymlink(const std::filesystem::path& path);

/// For ReadDirectory(); other bits are ignored.
enum ReadDirectoryFlags : unsigned
{
    Recursive = 1,   ///< The entries of subdirectories too; links to directories are not followed.
    OrderByTime = 2, ///< Oldest first; equal times in any order.
};

/// The entries of a directory, in any order unless OrderByTime is given. Always reads the time of
/// each entry, so one dangling link is a failure. "Couldn't read directory: PATH", where PATH is
/// the given directory.
std::vector<std::filesystem::path> ReadDirectory(const std::filesystem::path& path, unsigned flags);

/// Creates the parent directories of `to`, then renames. **Replaces an existing file.** `to` must
/// have a parent directory in its path: "name" alone fails. "Couldn't move FROM to TO"
void Move(const std::filesystem::path& from, const std::filesystem::path& to);

// Both create the parent directories first, so `link` must have one in its path. An existing entry
// at `link` is a failure that is not logged; " (path already exists)" is added to the message. A
// dangling link there passes that test, but then creating the link fails. A link that loops is
// logged twice: by the test and by the creation.

/// "Couldn't create symlink LINK pointing to TARGET"
void CreateSymlink(const std::filesystem::path& target, const std::filesystem::path& link);

/// "Couldn't create hardlink LINK pointing to TARGET"
void CreateHardlink(const std::filesystem::path& target, const std::filesystem::path& link);

} // namespace Common
