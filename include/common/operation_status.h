// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>

namespace Common {

/// The progress of an operation.
///
/// The numbers are the daemon's. The library interprets only the two that finish an operation: they
/// remove it from the active operations. With every other number the operation continues. Numbers
/// are carried unchanged, so a `switch` over this type needs a default.
enum class OperationStatus : std::int32_t
{
    None = 0,        ///< The status of a default-constructed Emporium::Operation.
    Succeeded = 100, ///< The operation has ended successfully.
    Failed =
        101, ///< The operation has ended; Emporium::Operation::GetErrorCode() gives the reason.
};

/// True if the operation has ended, successfully or not. Do not compare statuses with `>=`: with a
/// number above 101 the operation continues.
constexpr bool IsFinished(OperationStatus status) noexcept
{
    return status == OperationStatus::Succeeded || status == OperationStatus::Failed;
}

} // namespace Common
