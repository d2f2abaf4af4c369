// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>
#include <emporium/package.h>

#include <functional>
#include <string>

namespace Emporium {

/// Chooses packages: true for those that are wanted.
using PackageFilter = std::function<bool(const Package&)>;

/// Ready-made filters for DaemonConnection::GetPackageList().
///
///     connection.GetPackageList(Emporium::PackageFilters::DeveloperCertificateID("0a1b2c"));
///
/// They compare byte for byte, and keep a copy of what they compare with. An empty text matches
/// the packages whose field is empty.
namespace PackageFilters {

EMPORIUM_EXPORT PackageFilter DeveloperCertificateID(const std::string& id);
EMPORIUM_EXPORT PackageFilter DeveloperCertificateSubgroup(const std::string& subgroup);

} // namespace PackageFilters
} // namespace Emporium
