// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>
#include <emporium/package.h>

#include <functional>
#include <string>

namespace Emporium {

/// Returns true for the packages that are wanted.
using PackageFilter = std::function<bool(const Package&)>;

/// Ready-made filters for DaemonConnection::GetPackageList().
///
///     connection.GetPackageList(Emporium::PackageFilters::DeveloperCertificateID("0a1b2c"));
///
/// They compare byte for byte and keep a copy of their argument. An empty argument matches the
/// packages whose field is empty.
namespace PackageFilters {

/// The packages whose developer certificate has this ID.
EMPORIUM_EXPORT PackageFilter DeveloperCertificateID(const std::string& id);

/// The packages whose developer certificate belongs to this subgroup.
EMPORIUM_EXPORT PackageFilter DeveloperCertificateSubgroup(const std::string& subgroup);

} // namespace PackageFilters
} // namespace Emporium
