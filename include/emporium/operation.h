// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/error.h>
#include <common/export.h>
#include <common/operation_status.h>
#include <common/operation_type.h>
#include <emporium/result.h>

#include <memory>
#include <string>

namespace Emporium {

class OperationPrivate;

/// An install, upgrade or removal that the daemon runs or has run.
///
/// It is a picture of one moment: a handle whose copies share one object that never changes, so
/// copies may be read on several threads at once. Two pictures of the same operation have the same
/// UUID. The references that the getters return live as long as any copy. A handle that was moved
/// from may only be assigned to or destroyed.
class EMPORIUM_EXPORT Operation
{
public:
    /// Both texts empty, type Install, status None, error code None.
    Operation();
    Operation(std::string uuid, std::string packageID, Common::OperationType type,
              Common::OperationStatus status, Common::ErrorCode errorCode);

    Operation(const Operation& other);
    Operation(Operation&& other) noexcept;
    Operation& operator=(const Operation& other);
    Operation& operator=(Operation&& other) noexcept;
    ~Operation();

    /// The operation's name with the daemon; a text, not necessarily in the form of a UUID.
    const std::string& GetUUID() const;
    const std::string& GetPackageID() const;

    /// These three carry whatever number the daemon sent, also one that has no enumerator.
    const Common::OperationType& GetType() const;
    const Common::OperationStatus& GetStatus() const;
    const Common::ErrorCode& GetErrorCode() const;

    /// Writes the operation to a file, which it creates or truncates, in place: a failure can leave
    /// a partial file behind. Never throws for a failed write. The file is meant for the same
    /// library on the same machine.
    Result<void> SaveToFile(const std::string& path) const;

    /// Reads what SaveToFile() wrote. Never throws for a missing or damaged file, and takes no
    /// more memory than a small multiple of the file's size, whatever it contains.
    static Result<Operation> FromFile(const std::string& path);

private:
    std::shared_ptr<OperationPrivate> m_private;
};

} // namespace Emporium
