// SPDX-License-Identifier: BSD-3-Clause
#include "appdir.h"

#include "common/fs/file_name.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <pwd.h>
#include <stdexcept>
#include <unistd.h>
#include <vector>

namespace AppDir {
namespace {

std::string Environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::string ApplicationName()
{
    const std::string id = Environment("VEYRA_APP_ID");
    return Common::IsPlainFileName(id) ? id : program_invocation_short_name;
}

std::filesystem::path HomeFromPasswordDatabase()
{
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    const int failure = getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found);
    if (failure != 0 || found == nullptr) {
        return {};
    }
    return found->pw_dir;
}

std::filesystem::path CacheHome()
{
    // Ignores relative paths, as the XDG base-directory rules require: they would change their
    // meaning with the working directory.
    std::filesystem::path cacheHome = Environment("XDG_CACHE_HOME");
    if (cacheHome.is_absolute()) {
        return cacheHome;
    }
    std::filesystem::path home = Environment("HOME");
    if (!home.is_absolute()) {
        home = HomeFromPasswordDatabase();
    }
    if (!home.is_absolute()) {
        throw std::runtime_error("Couldn't locate the home directory");
    }
    return home / ".cache";
}

} // namespace

std::string getPath(PathType type)
{
    if (type != PathType::Cache) {
        throw std::invalid_argument("Only the cache directory is known here");
    }
    return CacheHome() / ApplicationName();
}

} // namespace AppDir
