// SPDX-License-Identifier: BSD-3-Clause
//
// A package file of any content, compared with an installed package as an install does.
#include "simulator/files/package_file.h"

#include "fuzz/simulator_file.h"
#include "simulator/bus/bus_error.h"
#include "simulator/daemon/package_rules.h"
#include "simulator/files/package_syntax.h"

namespace {

bool IsRefused(const Simulator::PackageFile& package, const Simulator::Catalogue& installed)
{
    try {
        Simulator::CheckAgainstInstalled(package, installed);
        return false;
    } catch (const Simulator::BusError&) {
        return true;
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto package = Fuzz::ReadUserFile(data, size, Simulator::ReadPackageFile);
    const bool isValid = package && Simulator::IsPackageId(package->id) &&
                         Simulator::IsPackageVersion(package->version);
    if (!isValid) {
        return 0;
    }
    const Simulator::Package record = Simulator::ToPackage(*package);
    Fuzz::RequireSendableRecord(record);

    Simulator::Catalogue catalogue;
    Fuzz::Require(!IsRefused(*package, catalogue), "a new package can be installed");
    catalogue.packages = {record};
    Fuzz::Require(IsRefused(*package, catalogue), "the same package cannot be installed again");

    Simulator::PackageFile other = *package;
    other.version = "2.0-rc1";
    catalogue.packages = {Simulator::ToPackage(other)};
    const bool isOlder = IsRefused(*package, catalogue);
    catalogue.packages = {record};
    const bool isNewer = IsRefused(other, catalogue);
    Fuzz::Require(isOlder || isNewer, "of two packages, at most one is an upgrade of the other");
    return 0;
}
