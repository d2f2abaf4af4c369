// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

namespace Common {

/// How far an operation has come.
///
/// The numbers are the daemon's. Only the two finishing ones mean something to the library: with
/// them an operation leaves the list of active operations. Every other number says that the
/// operation goes on; it is carried unchanged, so a `switch` over this type needs a default.
enum class OperationStatus : std::int32_t
{
    None = 0,        ///< Of a default-constructed Emporium::Operation.
    Succeeded = 100, ///< The operation has ended and has done what was asked.
    Failed = 101,    ///< The operation has ended; Emporium::Operation::GetErrorCode() tells why.
};

/// True if the operation has ended, whether it succeeded or failed. Compare no status with `>=`:
/// numbers above 101 are statuses of operations that continue.
constexpr bool IsFinished(OperationStatus status) noexcept
{
    return status == OperationStatus::Succeeded || status == OperationStatus::Failed;
}

} // namespace Common
