// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/names.h"

#include <algorithm>

namespace EmporiumCtl {

const std::vector<KnownError>& KnownErrors()
{
    static const std::vector<KnownError> errors = [] {
        std::vector<KnownError> known;
        constexpr int last = static_cast<int>(Common::ErrorCode::DisallowedDeveloperSubgroup);
        for (int code = 0; code <= last; ++code) {
            const Common::ErrorCodeHelper helper(code);
            const std::string& busName = helper.errorCodeAsDBusErrorString();
            // An unassigned number has the names of ErrorCode::Internal.
            if (static_cast<int>(Common::ErrorCodeHelper(busName).errorCode()) == code) {
                known.push_back({code, helper.errorCodeAsString(), busName,
                                 Common::ErrorCodeCategroty().message(code)});
            }
        }
        return known;
    }();
    return errors;
}

std::string NameOf(Common::OperationType type)
{
    switch (type) {
    case Common::OperationType::Install:
        return "install";
    case Common::OperationType::Upgrade:
        return "upgrade";
    case Common::OperationType::Remove:
        return "remove";
    }
    return std::to_string(static_cast<int>(type));
}

std::string NameOf(Common::OperationStatus status)
{
    switch (status) {
    case Common::OperationStatus::Succeeded:
        return "succeeded";
    case Common::OperationStatus::Failed:
        return "failed";
    default:
        return std::to_string(static_cast<int>(status));
    }
}

std::string Describe(Common::ErrorCode code)
{
    const auto& errors = KnownErrors();
    const auto known = std::find_if(errors.begin(), errors.end(), [code](const KnownError& error) {
        return error.code == static_cast<int>(code);
    });
    return known != errors.end() ? known->name + ": " + known->message
                                 : "unknown error " + std::to_string(static_cast<int>(code));
}

std::string Describe(const Emporium::Operation& operation)
{
    std::string text = NameOf(operation.GetType()) + ' ' + operation.GetPackageID() + ": " +
                       NameOf(operation.GetStatus());
    if (operation.GetStatus() == Common::OperationStatus::Failed) {
        text += " (" + Describe(operation.GetErrorCode()) + ')';
    }
    return text;
}

} // namespace EmporiumCtl
