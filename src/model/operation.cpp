// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/operation.h>

#include <utility>

namespace Emporium {

class OperationPrivate
{
public:
    OperationPrivate() = default;
    OperationPrivate(std::string&& operationUUID, std::string&& operationPackageID,
                     Common::OperationType operationType, Common::OperationStatus operationStatus,
                     Common::ErrorCode operationErrorCode)
        : uuid(std::move(operationUUID)), packageID(std::move(operationPackageID)),
          type(operationType), status(operationStatus), errorCode(operationErrorCode)
    {
    }

    std::string uuid;
    std::string packageID;
    Common::OperationType type = Common::OperationType::Install;
    Common::OperationStatus status = Common::OperationStatus::None;
    Common::ErrorCode errorCode = Common::ErrorCode::None;
};

Operation::Operation() : m_private(std::make_shared<OperationPrivate>()) {}

Operation::Operation(std::string uuid, std::string packageID, Common::OperationType type,
                     Common::OperationStatus status, Common::ErrorCode errorCode)
    : m_private(std::make_shared<OperationPrivate>(std::move(uuid), std::move(packageID), type,
                                                   status, errorCode))
{
}

Operation::Operation(const Operation&) = default;
Operation::Operation(Operation&&) noexcept = default;
Operation& Operation::operator=(const Operation&) = default;
Operation& Operation::operator=(Operation&&) noexcept = default;
Operation::~Operation() = default;

const std::string& Operation::GetUUID() const
{
    return m_private->uuid;
}

const std::string& Operation::GetPackageID() const
{
    return m_private->packageID;
}

const Common::OperationType& Operation::GetType() const
{
    return m_private->type;
}

const Common::OperationStatus& Operation::GetStatus() const
{
    return m_private->status;
}

const Common::ErrorCode& Operation::GetErrorCode() const
{
    return m_private->errorCode;
}

} // namespace Emporium
