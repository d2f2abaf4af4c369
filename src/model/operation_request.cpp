// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/operation_request.h>

#include <optional>
#include <stdexcept>

namespace Emporium {

class OperationRequestPrivate
{
public:
    Common::OperationType type = Common::OperationType::Install;
    std::string packageID;
    std::string packagePath;
};

class OperationRequest::BuilderPrivate
{
public:
    std::optional<Common::OperationType> type;
    std::optional<std::string> packageID;
    std::optional<std::string> packagePath;
};

namespace {

const char* DisplayName(Common::OperationType type)
{
    switch (type) {
    case Common::OperationType::Install:
        return "OperationType::Install";
    case Common::OperationType::Upgrade:
        return "OperationType::Upgrade";
    case Common::OperationType::Remove:
        return "OperationType::Remove";
    }
    return "OperationType::(Unknown)";
}

const std::string& Required(const std::optional<std::string>& field, Common::OperationType type,
                            const char* absent)
{
    if (!field) {
        throw std::logic_error(std::string("Attempt to build an operation request with type ") +
                               DisplayName(type) + absent);
    }
    return *field;
}

} // namespace

OperationRequest::OperationRequest() : m_private(std::make_shared<OperationRequestPrivate>()) {}
OperationRequest::OperationRequest(const OperationRequest&) = default;
OperationRequest::OperationRequest(OperationRequest&&) noexcept = default;
OperationRequest& OperationRequest::operator=(const OperationRequest&) = default;
OperationRequest& OperationRequest::operator=(OperationRequest&&) noexcept = default;
OperationRequest::~OperationRequest() = default;

Common::OperationType OperationRequest::GetOperationType() const
{
    return m_private->type;
}

const std::string& OperationRequest::GetPackageID() const
{
    return m_private->packageID;
}

const std::string& OperationRequest::GetPackagePath() const
{
    return m_private->packagePath;
}

void OperationRequest::SetOperationType(Common::OperationType type)
{
    m_private->type = type;
}

void OperationRequest::SetPackageID(const std::string& id)
{
    m_private->packageID = id;
}

void OperationRequest::SetPackagePath(const std::string& path)
{
    m_private->packagePath = path;
}

OperationRequest::Builder::Builder() : m_private(std::make_shared<BuilderPrivate>()) {}
OperationRequest::Builder::Builder(const Builder&) = default;
OperationRequest::Builder::Builder(Builder&&) noexcept = default;
OperationRequest::Builder& OperationRequest::Builder::operator=(const Builder&) = default;
OperationRequest::Builder& OperationRequest::Builder::operator=(Builder&&) noexcept = default;
OperationRequest::Builder::~Builder() = default;

OperationRequest::Builder& OperationRequest::Builder::SetOperationType(Common::OperationType type)
{
    m_private->type = type;
    return *this;
}

OperationRequest::Builder& OperationRequest::Builder::SetPackageID(const std::string& id)
{
    m_private->packageID = id;
    return *this;
}

OperationRequest::Builder& OperationRequest::Builder::SetPackagePath(const std::string& path)
{
    m_private->packagePath = path;
    return *this;
}

OperationRequest OperationRequest::Builder::Build() const
{
    const auto& [type, packageID, packagePath] = *m_private;
    if (!type) {
        throw std::logic_error(
            "Attempt to build an operation request but operation type not specified");
    }
    OperationRequest request;
    request.SetOperationType(*type);
    if (*type == Common::OperationType::Remove) {
        request.SetPackageID(Required(packageID, *type, " but package id not specified"));
    } else {
        request.SetPackagePath(Required(packagePath, *type, " but package path not specified"));
    }
    return request;
}

} // namespace Emporium
