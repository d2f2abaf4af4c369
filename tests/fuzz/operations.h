// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "fuzz/input.h"

#include <emporium/operation.h>

#include <cstdint>
#include <utility>

namespace Fuzz {

inline Emporium::Operation TakeOperation(Input& input)
{
    std::string uuid = input.Text();
    std::string packageID = input.Text();
    const auto type = static_cast<Common::OperationType>(input.Take<std::int32_t>());
    const auto status = static_cast<Common::OperationStatus>(input.Take<std::int32_t>());
    const auto error = static_cast<Common::ErrorCode>(input.Take<std::int32_t>());
    return Emporium::Operation(std::move(uuid), std::move(packageID), type, status, error);
}

inline bool AreEqual(const Emporium::Operation& left, const Emporium::Operation& right)
{
    return left.GetUUID() == right.GetUUID() && left.GetPackageID() == right.GetPackageID() &&
           left.GetType() == right.GetType() && left.GetStatus() == right.GetStatus() &&
           left.GetErrorCode() == right.GetErrorCode();
}

} // namespace Fuzz
