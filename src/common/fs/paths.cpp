// SPDX-License-Identifier: BSD-3-Clause
#include "common/fs/paths.h"

#include "common/fs/failure.h"

#include <boost/filesystem/operations.hpp>

#include <cstdlib>

namespace Common {

namespace fs = std::filesystem;

fs::path GetRootPath()
{
    const char* const root = std::getenv("KVD_ROOT_FS");
    return root != nullptr ? root : "/";
}

fs::path GetHomePath()
{
    const char* const home = std::getenv("HOME");
    if (home == nullptr) {
        throw FilesystemError("Couldn't locate current user home directory");
    }
    return home;
}

fs::path GetTempDirectoryPath()
{
    return Wrapped([] { return fs::temp_directory_path(); },
                   [] { return "Couldn't retrieve temp directory path"; });
}

fs::path MakeUniquePath(const std::string& model)
{
    return boost::filesystem::unique_path(model).string();
}

} // namespace Common
