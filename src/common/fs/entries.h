// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <vector>

namespace Common {

// A failure of each of these is logged with its cause and thrown with the message that stands here.

/// Removes an entry, **a directory with all that is in it**. A missing entry is no failure. A link
/// goes itself. "Couldn't remove filesystem entry: PATH"
void Remove(const std::filesystem::path& path);

/// Makes a directory and those above it. One that is there is no failure. "Couldn't create
/// directory: PATH"
void CreateDirectories(const std::filesystem::path& path);

/// The link's text as it is. "Couldn't read symlink: PATH"
std::filesystem::path ReadSymlink(const std::filesystem::path& path);

/// For ReadDirectory(); other bits are ignored.
enum ReadDirectoryFlags : unsigned
{
    Recursive = 1,   ///< The entries of subdirectories too; links to directories are not entered.
    OrderByTime = 2, ///< Those written first come first; equal times in any order.
};

/// The entries of a directory, in any order if none is asked for. Every entry's time is read, so one
/// dangling link among them is a failure, even then. "Couldn't read directory: PATH", which is the
/// directory that was asked for.
std::vector<std::filesystem::path> ReadDirectory(const std::filesystem::path& path, unsigned flags);

/// Makes the directories above `to`, then renames. **A file that is there is replaced.** `to` needs a
/// directory in it: "name" alone fails. "Couldn't move FROM to TO"
void Move(const std::filesystem::path& from, const std::filesystem::path& to);

// Both make the directories above the link first, and so `link` needs a directory in it. Something at
// `link` is a failure that is not logged, told with " (path already exists)" at the end; a dangling
// link there does not count as something, but then the making itself fails. A link that loops is
// logged twice: by the test whether it is there, and by the making.

/// "Couldn't create symlink LINK pointing to TARGET"
void CreateSymlink(const std::filesystem::path& target, const std::filesystem::path& link);

/// "Couldn't create hardlink LINK pointing to TARGET"
void CreateHardlink(const std::filesystem::path& target, const std::filesystem::path& link);

} // namespace Common
