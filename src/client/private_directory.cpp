// SPDX-License-Identifier: BSD-3-Clause
#include "client/private_directory.h"

#include "common/fs/directory_names.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Emporium {

namespace fs = std::filesystem;

namespace {

std::string Prefix(const fs::path& original, std::string_view purpose)
{
    return original.filename().string() + "." + std::string(purpose) + "-";
}

/// A random name, because process IDs repeat where several containers share a home.
fs::path NewPath(const fs::path& original, std::string_view purpose)
{
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, 0) != sizeof number) {
        number = static_cast<std::uint64_t>(::getpid()); // before Linux 3.17
    }
    std::array<char, 17> digits{};
    std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
    return original.parent_path() / (Prefix(original, purpose) + digits.data());
}

/// Returns false if the directory was renamed or removed after it was opened.
bool IsStillAt(const fs::path& path, int directory)
{
    struct stat opened{};
    struct stat named{};
    return ::fstat(directory, &opened) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

} // namespace

PrivateDirectory::PrivateDirectory(fs::path path)
    : m_path(std::move(path)),
      m_directory(::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC))
{
}

/// Returns false if another process holds the lock. On a file system without locks, nobody does.
bool PrivateDirectory::Lock() const
{
    const bool heldByAnother =
        ::flock(m_directory.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    return !heldByAnother && IsStillAt(m_path, m_directory.Get());
}

std::optional<PrivateDirectory> PrivateDirectory::Create(const fs::path& original,
                                                         std::string_view purpose)
{
    // Until it is locked, a process that starts may remove it as the directory of a crashed process.
    constexpr int mostStarts = 100;
    for (int starts = 0; starts < mostStarts; ++starts) {
        const fs::path path = NewPath(original, purpose);
        if (::mkdir(path.c_str(), S_IRWXU) != 0) {
            return std::nullopt;
        }
        PrivateDirectory directory(path);
        if (directory.m_directory && directory.Lock()) {
            return directory;
        }
        ::rmdir(path.c_str());
    }
    return std::nullopt;
}

std::optional<PrivateDirectory>
PrivateDirectory::Take(const fs::path& original, std::string_view purpose, std::error_code& failure)
{
    const fs::path path = NewPath(original, purpose);
    fs::rename(original, path, failure);
    if (failure) {
        if (failure == std::errc::no_such_file_or_directory) {
            failure.clear();
        }
        return std::nullopt;
    }
    PrivateDirectory directory(path);
    // As in Create(). A directory that exists but cannot be opened is kept: reading it reports why.
    const bool isOurs = directory.m_directory ? directory.Lock() : fs::exists(path, failure);
    failure.clear();
    if (!isOurs) {
        return std::nullopt;
    }
    return directory;
}

std::vector<PrivateDirectory> PrivateDirectory::LeftBehind(const fs::path& original,
                                                           std::string_view purpose)
{
    const fs::path parent = original.parent_path();
    const std::string prefix = Prefix(original, purpose);
    std::vector<PrivateDirectory> found;
    std::error_code ignored; // the parent usually does not exist on the first start
    for (const std::string& name : Common::DirectoryNames(parent.string(), ignored)) {
        if (!name.starts_with(prefix)) {
            continue;
        }
        PrivateDirectory directory(parent / name);
        if (directory.m_directory && directory.Lock()) {
            found.push_back(std::move(directory));
        }
    }
    return found;
}

} // namespace Emporium
