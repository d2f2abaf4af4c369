// SPDX-License-Identifier: BSD-3-Clause
#include "common/fs/entry_tests.h"

#include "common/fs/failure.h"

namespace Common {

namespace fs = std::filesystem;

namespace {

/// Returns the answer, or logs the failure and returns false.
template <typename Question>
bool Answer(Question question)
{
    try {
        return question();
    } catch (const std::exception& cause) {
        LogCause(cause);
        return false;
    }
}

} // namespace

bool Exists(const fs::path& path)
{
    return Answer([&] { return fs::exists(fs::status(path)); });
}

bool IsDirectory(const fs::path& path)
{
    return Answer([&] { return fs::is_directory(fs::status(path)); });
}

bool IsRegularFile(const fs::path& path)
{
    return Answer([&] { return fs::is_regular_file(fs::status(path)); });
}

bool IsSocket(const fs::path& path)
{
    return Answer([&] { return fs::is_socket(fs::status(path)); });
}

bool IsSymlink(const fs::path& path)
{
    return Answer([&] { return fs::is_symlink(fs::symlink_status(path)); });
}

bool IsEmptyDirectory(const fs::path& path)
{
    if (!IsDirectory(path)) {
        throw FilesystemError("Attempt to check if the path is an empty directory, but the path "
                              "is not a directory");
    }
    return Answer([&] { return fs::is_empty(path); });
}

} // namespace Common
