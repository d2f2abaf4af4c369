// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/private_directory.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

namespace Simulator {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = "emporium-bus-";
constexpr std::string_view pattern = "emporium-bus-XXXXXX";
constexpr std::string_view longestName = "bus";
constexpr const char* lockName = "lock";

// The bus daemon's limit, a little less than a socket address holds.
constexpr std::size_t longestSocketPath = 99;

bool HasRoomForASocket(const fs::path& parent)
{
    const fs::path socket = parent / pattern / longestName;
    return socket.native().size() <= longestSocketPath;
}

// Absolute, because the command may change its directory. The path of a temporary directory may be
// longer than that of a socket.
fs::path ShortTemporaryDirectory()
{
    const char* const wanted = std::getenv("TMPDIR");
    const fs::path usual = "/tmp";
    const fs::path parent = wanted != nullptr && *wanted != '\0' ? fs::absolute(wanted) : usual;
    return HasRoomForASocket(parent) ? parent : usual;
}

// Without write permission to a directory, as caches of downloads have it, its entries cannot be
// removed.
void AllowRemoval(const fs::path& directory)
{
    std::error_code ignored;
    fs::permissions(directory, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (fs::recursive_directory_iterator entry(directory, ignored), end; entry != end;
         entry.increment(ignored)) {
        if (entry->symlink_status(ignored).type() == fs::file_type::directory) {
            fs::permissions(entry->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
}

void Remove(const fs::path& directory)
{
    std::error_code error;
    fs::remove_all(directory, error);
    if (error) {
        AllowRemoval(directory);
        fs::remove_all(directory, error);
    }
}

bool IsOwnDirectory(const fs::path& path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid();
}

void RemoveIfUnused(const fs::path& directory)
{
    const Common::FileDescriptor lock(
        open((directory / lockName).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!lock) {
        rmdir(directory.c_str()); // Succeeds if its creator was killed at the start.
    } else if (flock(lock.Get(), LOCK_EX | LOCK_NB) == 0) {
        Remove(directory);
    }
}

void RemoveUnusedDirectories(const fs::path& parent)
{
    std::error_code ignored;
    for (fs::directory_iterator entry(parent, ignored), end; entry != end;
         entry.increment(ignored)) {
        const std::string name = entry->path().filename();
        if (name.starts_with(prefix) && name.size() == pattern.size() &&
            IsOwnDirectory(entry->path())) {
            RemoveIfUnused(entry->path());
        }
    }
}

} // namespace

PrivateDirectory::PrivateDirectory()
{
    const fs::path parent = ShortTemporaryDirectory();
    RemoveUnusedDirectories(parent);
    while (!Create(parent)) {
    }
}

// Returns false if another process took the new directory for an unused one, which is possible until it
// is locked.
bool PrivateDirectory::Create(const fs::path& parent)
{
    std::string path = parent / pattern;
    if (mkdtemp(path.data()) == nullptr) {
        throw std::runtime_error("cannot create a directory in " + parent.native() + ": " +
                                 std::generic_category().message(errno));
    }
    m_path = path;
    m_lock.emplace(
        open((m_path / lockName).c_str(), O_RDONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!*m_lock && errno == ENOENT) {
        return false;
    }
    struct stat status = {};
    if (!*m_lock || flock(m_lock->Get(), LOCK_EX) != 0 || fstat(m_lock->Get(), &status) != 0) {
        const int error = errno;
        Remove(m_path);
        throw std::runtime_error("cannot lock " + m_path.native() + ": " +
                                 std::generic_category().message(error));
    }
    return status.st_nlink != 0;
}

PrivateDirectory::~PrivateDirectory()
{
    Remove(m_path);
}

} // namespace Simulator
