// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/state.h"

#include <common/error.h>

#include <string>
#include <variant>

namespace Simulator {

/// A package file of the simulator: a GLib key file, so that people can write one by hand.
///
///     [Package]
///     ID=org.example.app
///     Version=1.0
///     Architecture=aarch64
///     DeveloperCertificateID=example-developer
///     DeveloperCertificateSubgroup=regular
///     PayloadSize=4096
struct PackageFile
{
    std::string id;
    std::string version;
    std::string architecture;
    std::string certificateID;
    std::string subgroup;
    int payloadSize = 0;
};

/// Empty if the file was written, else why not.
std::string WritePackageFile(const std::string& path, const PackageFile& package);

/// What is in the file, or the error with which a daemon would refuse it whatever is installed.
std::variant<PackageFile, Common::ErrorCode> ReadPackageFile(const std::string& path);

/// The error with which a daemon in this state would refuse the package; None if it would take it.
Common::ErrorCode CheckPackage(const PackageFile& package, State& state);

} // namespace Simulator
