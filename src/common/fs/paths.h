// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <filesystem>
#include <string>

namespace Common {

/// The root of the system tree: the value of `KVD_ROOT_FS`, unchanged even if it is empty or
/// relative, or "/" if it is unset. Reads the environment without a lock.
std::filesystem::path GetRootPath();

/// The value of `HOME`, unchanged. Never reads the password database. Throws if it is unset:
/// "Couldn't locate current user home directory". Reads the environment without a lock.
std::filesystem::path GetHomePath();

/// The existing directory for temporary files. If there is none, logs the cause and throws
/// "Couldn't retrieve temp directory path".
std::filesystem::path GetTempDirectoryPath();

/// The model with each "%" replaced by a random lower-case hexadecimal digit. Nothing is created.
/// The generator's own exception passes through.
std::filesystem::path MakeUniquePath(const std::string& model);

} // namespace Common
