// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>

#include <map>
#include <memory>
#include <string>

namespace Emporium {

class PackagePrivate;

/// An installed package, as the daemon described it.
///
/// A handle: copies are cheap and share one immutable object, so several threads may read copies at
/// once. The references that the getters return are valid as long as any copy. A handle that was
/// moved from may only be assigned to or destroyed.
class EMPORIUM_EXPORT Package
{
public:
    /// A package with empty texts.
    Package();

    /// Note the order: the subgroup precedes the certificate ID, as on the wire.
    Package(std::string id, std::string version, std::string developerCertificateSubgroup,
            std::string developerCertificateID, std::map<std::string, std::string> map);

    /// @name Copying and moving
    /// @{

    /// Copies share one immutable object.
    Package(const Package& other);
    Package(Package&& other) noexcept;
    Package& operator=(const Package& other);
    Package& operator=(Package&& other) noexcept;
    ~Package();
    /// @}

    /// Identifies the package, for example "org.example.recipes".
    const std::string& GetID() const;

    /// The version, for example "2.1". Only the daemon defines which of two versions is newer.
    const std::string& GetVersion() const;

    /// The ID of the certificate that signed the package.
    const std::string& GetDeveloperCertificateID() const;

    /// The subgroup that this certificate belongs to, for example "regular".
    const std::string& GetDeveloperCertificateSubgroup() const;

private:
    std::shared_ptr<PackagePrivate> m_private;
};

} // namespace Emporium
