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
/// A handle: copies are cheap and share one object that never changes, so copies may be read on
/// several threads at once. The references that the getters return live as long as any copy. A
/// handle that was moved from may only be assigned to or destroyed.
class EMPORIUM_EXPORT Package
{
public:
    /// A package whose texts are all empty.
    Package();

    /// Mind the order: the subgroup comes before the certificate ID, as the daemon sends them.
    Package(std::string id, std::string version, std::string developerCertificateSubgroup,
            std::string developerCertificateID, std::map<std::string, std::string> map);

    Package(const Package& other);
    Package(Package&& other) noexcept;
    Package& operator=(const Package& other);
    Package& operator=(Package&& other) noexcept;
    ~Package();

    const std::string& GetID() const;
    const std::string& GetVersion() const;
    const std::string& GetDeveloperCertificateID() const;
    const std::string& GetDeveloperCertificateSubgroup() const;

private:
    std::shared_ptr<PackagePrivate> m_private;
};

} // namespace Emporium
