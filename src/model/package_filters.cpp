// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/package_filters.h>

namespace Emporium::PackageFilters {

PackageFilter DeveloperCertificateID(const std::string& id)
{
    return [id](const Package& package) { return package.GetDeveloperCertificateID() == id; };
}

PackageFilter DeveloperCertificateSubgroup(const std::string& subgroup)
{
    return [subgroup](const Package& package) {
        return package.GetDeveloperCertificateSubgroup() == subgroup;
    };
}

} // namespace Emporium::PackageFilters
