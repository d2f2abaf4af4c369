// SPDX-License-Identifier: BSD-3-Clause
#include "common/fs/copy.h"

#include "common/fs/entries.h"
#include "common/fs/entry_tests.h"
#include "common/fs/extended_attributes.h"
#include "common/fs/failure.h"

#include <algorithm>
#include <iomanip>
#include <string>
#include <system_error>

namespace Common {

namespace fs = std::filesystem;

namespace {

/// Paths are quoted in log lines, and plain in exception messages.
auto Quoted(const fs::path& path)
{
    return std::quoted(path.native());
}

/// Runs the step. After any failure, removes whatever is at the destination and rethrows.
template <typename Step>
void CleaningUp(const char* kind, const fs::path& destination, Step step)
{
    try {
        step();
    } catch (...) {
        try {
            Remove(destination);
        } catch (const Error&) {
            LogMessage(LogLevel::Warning)
                << "Couldn't cleanup bad copied " << kind << ": " << Quoted(destination);
        }
        throw;
    }
}

void CopyExtendedAttributes(const fs::path& source, const fs::path& destination)
{
    for (const auto& [name, value] : GetExtendedAttributes(source)) {
        SetExtendedAttribute(destination, name, value);
    }
}

bool PointsIntoItsDirectory(const fs::path& text)
{
    const std::string& raw = text.native();
    return !raw.empty() && raw.front() != '.' && raw.front() != '/';
}

/// True if the link was created; a failure is logged.
bool TryCreateSymlink(const fs::path& text, const fs::path& source, const fs::path& destination)
{
    try {
        fs::create_directories(destination.parent_path());
        fs::create_symlink(text, destination);
        return true;
    } catch (const std::exception&) {
        LogMessage(LogLevel::Warning)
            << "Coulnd't copy symlink " << Quoted(source) << " to " << Quoted(destination);
        return false;
    }
}

/// False also if this cannot be determined: the copy then fails by itself.
bool IsInside(const fs::path& path, const fs::path& directory)
{
    std::error_code failure;
    const fs::path inner = fs::weakly_canonical(path, failure);
    const fs::path outer = failure ? fs::path() : fs::canonical(directory, failure);
    if (failure) {
        return false;
    }
    const auto [end, rest] = std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end());
    return end == outer.end() && rest != inner.end();
}

} // namespace

void CopyFile(const fs::path& source, const fs::path& destination)
{
    if (!IsRegularFile(source)) {
        throw FilesystemError("Attempt to copy file, but " + source.native() +
                              " is not regular file");
    }
    try {
        CleaningUp("file", destination, [&] {
            fs::create_directories(destination.parent_path());
            fs::copy_file(source, destination);
            CopyExtendedAttributes(source, destination);
        });
    } catch (const std::exception& cause) {
        LogMessage(LogLevel::Warning) << cause.what();
        throw FilesystemError("Coulnd't copy file " + source.native() + " to " +
                              destination.native());
    }
}

void CopySymlink(const fs::path& source, const fs::path& destination)
{
    if (!IsSymlink(source)) {
        throw FilesystemError("Attempt to copy symlink, but " + source.native() +
                              " is not symlink");
    }
    const fs::path text = ReadSymlink(source);
    if (!PointsIntoItsDirectory(text)) {
        LogMessage(LogLevel::Warning)
            << "Symlink target is not in the same directory: " << Quoted(source) << " -> "
            << Quoted(destination);
    } else if (TryCreateSymlink(text, source, destination)) {
        return;
    }
    LogMessage(LogLevel::Info) << "Trying to copy content of the symlink target";
    CopyFile(source, destination);
}

void Copy(const fs::path& source, const fs::path& destination)
{
    const std::string failed = "Couldn't copy " + source.native() + " to " + destination.native();
    if (!Exists(source)) {
        throw FilesystemError(failed + " (path " + source.native() + " doesn't exists)");
    }
    if (Exists(destination)) {
        throw FilesystemError(failed + " (path already exists)");
    }
    // Links first: the other tests follow them.
    if (IsSymlink(source)) {
        CopySymlink(source, destination);
    } else if (IsDirectory(source)) {
        CopyDirectory(source, destination);
    } else if (IsRegularFile(source)) {
        CopyFile(source, destination);
    } else {
        throw FilesystemError("Couldn't copy unsupported filesystem entry " + source.native());
    }
}

void CopyDirectory(const fs::path& source, const fs::path& destination)
{
    if (!IsDirectory(source)) {
        throw FilesystemError("Attempt to copy directory, but " + source.native() +
                              " is not directory");
    }
    const std::string failed =
        "Coulnd't copy directory " + source.native() + " to " + destination.native();
    if (IsInside(destination, source)) {
        throw FilesystemError(failed);
    }
    try {
        CleaningUp("directory", destination, [&] {
            fs::create_directories(destination);
            for (const fs::path& entry : ReadDirectory(source, 0)) {
                Copy(entry, destination / entry.filename());
            }
        });
    } catch (const std::exception&) {
        throw FilesystemError(failed);
    }
}

} // namespace Common
