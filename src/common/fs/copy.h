// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>

namespace Common {

// A copy that fails is removed before the exception is thrown; the parent directories that were
// created for it stay. Nothing here is atomic: others can see a partial copy. A destination must
// have a parent directory in its path: "name" alone fails.

/// Copies an entry of any kind that can be copied: a link with CopySymlink(), a directory with
/// CopyDirectory(), a regular file with CopyFile(). Never overwrites: an existing destination is a
/// failure, and stays as it is.
///
/// Throws "Couldn't copy SOURCE to DESTINATION (path SOURCE doesn't exists)", also for a dangling
/// link; "Couldn't copy SOURCE to DESTINATION (path already exists)"; "Couldn't copy unsupported
/// filesystem entry SOURCE" for a socket, a FIFO or a device; and what those three throw.
void Copy(const std::filesystem::path& source, const std::filesystem::path& destination);

/// Copies a regular file, or the target of a link, with its permissions and its extended attributes
/// (those with an empty value are left out). Creates the parent directories.
///
/// **An existing destination is lost**: the copy fails because of it, and the clean-up after the
/// failure removes it. This includes a file that is copied onto itself, and a directory with its
/// whole content.
///
/// Throws "Attempt to copy file, but SOURCE is not regular file", or, with the cause logged as a
/// warning, "Coulnd't copy file SOURCE to DESTINATION".
void CopyFile(const std::filesystem::path& source, const std::filesystem::path& destination);

/// Creates a link with the same text if the text begins with a name. Otherwise (the text begins
/// with "." or "/"), or if that fails, copies the file that the link leads to with CopyFile(),
/// **which loses an existing destination**. Only the first character counts: "name/other" is taken
/// for a text in the same directory.
///
/// Throws "Attempt to copy symlink, but SOURCE is not symlink", and what ReadSymlink() and
/// CopyFile() throw.
void CopySymlink(const std::filesystem::path& source, const std::filesystem::path& destination);

/// Copies a directory with its whole content, entry by entry with Copy(). Entries are added to an
/// existing destination.
///
/// **One failure, such as a name that is already taken, removes the whole destination**, including
/// its earlier content. A directory that is copied onto itself is lost. A destination inside the
/// source is refused before anything changes: the copy would never end.
///
/// Throws "Attempt to copy directory, but SOURCE is not directory" or "Coulnd't copy directory
/// SOURCE to DESTINATION". Logs no cause of its own; the functions it calls log theirs.
void CopyDirectory(const std::filesystem::path& source, const std::filesystem::path& destination);

} // namespace Common
