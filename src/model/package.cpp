// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/package.h>

#include <utility>

namespace Emporium {

class PackagePrivate
{
public:
    PackagePrivate() = default;
    PackagePrivate(std::string&& packageID, std::string&& packageVersion, std::string&& subgroup,
                   std::string&& certificateID, std::map<std::string, std::string>&& entries)
        : id(std::move(packageID)), version(std::move(packageVersion)),
          developerCertificateSubgroup(std::move(subgroup)),
          developerCertificateID(std::move(certificateID)), map(std::move(entries))
    {
    }

    std::string id;
    std::string version;
    std::string developerCertificateSubgroup;
    std::string developerCertificateID;
    std::map<std::string, std::string> map;
};

Package::Package() : m_private(std::make_shared<PackagePrivate>()) {}

Package::Package(std::string id, std::string version, std::string developerCertificateSubgroup,
                 std::string developerCertificateID, std::map<std::string, std::string> map)
    : m_private(std::make_shared<PackagePrivate>(std::move(id), std::move(version),
                                                 std::move(developerCertificateSubgroup),
                                                 std::move(developerCertificateID), std::move(map)))
{
}

Package::Package(const Package&) = default;
Package::Package(Package&&) noexcept = default;
Package& Package::operator=(const Package&) = default;
Package& Package::operator=(Package&&) noexcept = default;
Package::~Package() = default;

const std::string& Package::GetID() const
{
    return m_private->id;
}

const std::string& Package::GetVersion() const
{
    return m_private->version;
}

const std::string& Package::GetDeveloperCertificateID() const
{
    return m_private->developerCertificateID;
}

const std::string& Package::GetDeveloperCertificateSubgroup() const
{
    return m_private->developerCertificateSubgroup;
}

} // namespace Emporium
