// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/files/catalogue.h"
#include "simulator/files/package_file.h"

#include <string>

namespace Simulator {

/// Reads the file and compares it with the installed packages, as a careful daemon does.
/// @throws BusError with the error of the first check that fails
PackageFile CheckPackageFile(const std::string& path, const Catalogue& catalogue);

/// Compares an already read package file with the installed packages.
/// @throws BusError
void CheckAgainstInstalled(const PackageFile& package, const Catalogue& catalogue);

/// Returns the package that installing the file gives.
Package ToPackage(const PackageFile& file);

} // namespace Simulator
