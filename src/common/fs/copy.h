// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>

namespace Common {

// Copying. A copy that fails is taken away again before the failure is told; directories that were
// made above it stay. None of this is atomic: others can see a half-written copy. A destination
// needs a directory in it: "name" alone fails.

/// Copies an entry of any kind that can be copied: a link with CopySymlink(), a directory with
/// CopyDirectory(), a regular file with CopyFile(). Never overwrites: something at the destination is
/// a failure, and stays as it is.
///
/// Throws "Couldn't copy SOURCE to DESTINATION (path SOURCE doesn't exists)", which a dangling link
/// gets too; "Couldn't copy SOURCE to DESTINATION (path already exists)"; "Couldn't copy unsupported
/// filesystem entry SOURCE" for a socket, a FIFO or a device; and what those three throw.
void Copy(const std::filesystem::path& source, const std::filesystem::path& destination);

/// Copies a regular file, or the one that a link leads to, with its permissions and its extended
/// attributes (those with an empty value are left out). Makes the directories above.
///
/// **Whatever is at the destination is lost**: the copy fails because of it, and what is taken away
/// after the failure is just that. A file that is copied onto itself is gone, too; a directory goes
/// with all that is in it.
///
/// Throws "Attempt to copy file, but SOURCE is not regular file", or, with the cause logged as a
/// warning, "Coulnd't copy file SOURCE to DESTINATION".
void CopyFile(const std::filesystem::path& source, const std::filesystem::path& destination);

/// Makes the same link again if its text begins with a name; otherwise (the text begins with "." or
/// "/"), or if that fails, copies the content of the file that it leads to with CopyFile(), **with
/// what that does to something at the destination**. Only the first character is looked at: a text
/// such as "name/other" counts as one in the same directory.
///
/// Throws "Attempt to copy symlink, but SOURCE is not symlink", and what ReadSymlink() and CopyFile()
/// throw.
void CopySymlink(const std::filesystem::path& source, const std::filesystem::path& destination);

/// Copies a directory with all that is in it, entry by entry with Copy(). A destination that is there
/// is added to.
///
/// **One failure, such as a name that is already taken, removes the whole destination**, with what
/// was in it before. A directory that is copied onto itself is gone. A destination inside the source
/// is refused before anything is touched: the copy would be its own source and never end.
///
/// Throws "Attempt to copy directory, but SOURCE is not directory" or "Coulnd't copy directory SOURCE
/// to DESTINATION". The cause is not logged here; whatever failed further down has logged its own.
void CopyDirectory(const std::filesystem::path& source, const std::filesystem::path& destination);

} // namespace Common
