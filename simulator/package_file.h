// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "catalogue.h"

#include <cstdint>
#include <string>

namespace Simulator {

/// What a package file says about its package.
struct PackageFile
{
    std::string id;
    std::string version;
    std::string architecture = "noarch"; ///< noarch fits every system
    std::string developer;
    std::string subgroup;
    std::uint64_t payloadSize = 0;
};

/// @throws std::system_error when the file cannot be written
void WritePackageFile(const std::string& path, const PackageFile& package);

/// Reads the file and holds it against what is installed, as a careful daemon does.
/// @throws BusError with the error of the first check that fails
PackageFile CheckPackageFile(const std::string& path, const Catalogue& catalogue);

/// The checks against what is installed.
/// @throws BusError
void CheckAgainstInstalled(const PackageFile& package, const Catalogue& catalogue);

Package ToPackage(const PackageFile& file);

} // namespace Simulator
