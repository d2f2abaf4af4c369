// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <string>

namespace Simulator {

/// The content of a package file.
struct PackageFile
{
    std::string id;
    std::string version;
    std::string architecture = "noarch"; ///< noarch fits every system
    std::string developer;
    std::string subgroup;
    std::uint64_t payloadSize = 0;
};

/// @throws InputError if the name is that of something else than a regular file; std::runtime_error when
/// the file cannot be written
void WritePackageFile(const std::string& path, const PackageFile& package);

/// Reads the file without checking whether its values make a valid package.
/// @throws InputError naming the line; std::system_error when the file cannot be read
PackageFile ReadPackageFile(const std::string& path);

} // namespace Simulator
