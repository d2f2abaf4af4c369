// SPDX-License-Identifier: BSD-3-Clause
#include "emporiumctl/json.h"

namespace EmporiumCtl {

Json ToJson(const Emporium::Package& package)
{
    return {{"id", package.GetID()},
            {"version", package.GetVersion()},
            {"developer", package.GetDeveloperCertificateID()},
            {"subgroup", package.GetDeveloperCertificateSubgroup()}};
}

Json ToJson(const Emporium::Operation& operation)
{
    return {{"uuid", operation.GetUUID()},
            {"package", operation.GetPackageID()},
            {"type", static_cast<int>(operation.GetType())},
            {"status", static_cast<int>(operation.GetStatus())},
            {"error", static_cast<int>(operation.GetErrorCode())}};
}

Json EventToJson(const char* name, const Emporium::Package& package)
{
    return {{"event", name}, {"package", ToJson(package)}};
}

Json EventToJson(const char* name, const Emporium::Operation& operation)
{
    return {{"event", name}, {"operation", ToJson(operation)}};
}

Json ToJson(const Snapshot& snapshot)
{
    return {{"architecture", snapshot.architecture},
            {"version", snapshot.version},
            {"packages", ToJson(snapshot.packages)},
            {"active", ToJson(snapshot.active)},
            {"completed", ToJson(snapshot.completed)}};
}

Json ToJson(const CallError& error)
{
    return {{"code", error.code ? Json(*error.code) : Json()},
            {"name", error.name.empty() ? Json() : Json(error.name)},
            {"message", error.message}};
}

std::string Line(const Json& document, Text::Letters letters)
{
    return Text::PrintableJson(document.dump(-1, ' ', false, Json::error_handler_t::replace),
                               letters);
}

} // namespace EmporiumCtl
