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
/// Describes the operation at one moment; a later description of it has the same UUID. A handle:
/// copies are cheap and share one immutable object, so several threads may read copies at once. The
/// references that the getters return are valid as long as any copy. A handle that was moved from
/// may only be assigned to or destroyed.
class EMPORIUM_EXPORT Operation
{
public:
    /// An operation with empty texts, type Install, status None and error code None.
    Operation();

    /// An operation with these values, for example in a test of an application.
    Operation(std::string uuid, std::string packageID, Common::OperationType type,
              Common::OperationStatus status, Common::ErrorCode errorCode);

    /// @name Copying and moving
    /// @{

    /// Copies share one immutable object.
    Operation(const Operation& other);
    Operation(Operation&& other) noexcept;
    Operation& operator=(const Operation& other);
    Operation& operator=(Operation&& other) noexcept;
    ~Operation();
    /// @}

    /// Identifies the operation; any text that the daemon chose, not necessarily a UUID by its form.
    const std::string& GetUUID() const;

    /// The ID of the package that the operation installs, upgrades or removes.
    const std::string& GetPackageID() const;

    /// What the operation does; the daemon's number, also one without an enumerator.
    const Common::OperationType& GetType() const;

    /// The progress; the daemon's number, also one without an enumerator.
    const Common::OperationStatus& GetStatus() const;

    /// Why the operation failed, if its status is Failed; the daemon's number, also one without an
    /// enumerator.
    const Common::ErrorCode& GetErrorCode() const;

    /// Writes the operation to a file, which is created or truncated; a failure can leave a partial
    /// file. Returns an error if writing fails. The file is meant for the same library on the same
    /// machine.
    Result<void> SaveToFile(const std::string& path) const;

    /// Reads a file that SaveToFile() wrote. Returns an error if the file is missing or damaged.
    /// Needs at most a small multiple of the file's size as memory, whatever the file contains, and
    /// refuses a file that is larger than any operation from the bus.
    static Result<Operation> FromFile(const std::string& path);

private:
    std::shared_ptr<OperationPrivate> m_private;
};

} // namespace Emporium
