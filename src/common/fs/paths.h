// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <string>

namespace Common {

/// The root under which the system tree is addressed: the value of `KVD_ROOT_FS` as it is, also if
/// it is empty or relative, or "/" if it is unset. Reads the environment without a lock.
std::filesystem::path GetRootPath();

/// The value of `HOME` as it is. The password database is not asked. Throws if it is unset:
/// "Couldn't locate current user home directory". Reads the environment without a lock.
std::filesystem::path GetHomePath();

/// The directory for temporary files, which exists. Otherwise logs the cause and throws "Couldn't
/// retrieve temp directory path".
std::filesystem::path GetTempDirectoryPath();

/// The model with each "%" replaced by a random lower-case hexadecimal digit. Nothing is created.
/// The generator's own exception passes through.
std::filesystem::path MakeUniquePath(const std::string& model);

} // namespace Common
