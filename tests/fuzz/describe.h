// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/properties.h"

#include <emporium/operation.h>
#include <emporium/package.h>

#include <string>
#include <vector>

namespace Fuzz {

// What a decoder has read, as text that can be compared.

inline std::string Describe(const Emporium::Operation& operation)
{
    return operation.GetUUID() + "|" + operation.GetPackageID() + "|" +
           std::to_string(static_cast<int>(operation.GetType())) + "|" +
           std::to_string(static_cast<int>(operation.GetStatus())) + "|" +
           std::to_string(static_cast<int>(operation.GetErrorCode())) + "\n";
}

inline std::string Describe(const Emporium::Package& package)
{
    return package.GetID() + "|" + package.GetVersion() + "|" +
           package.GetDeveloperCertificateSubgroup() + "|" + package.GetDeveloperCertificateID() +
           "\n";
}

template <typename Record>
std::string Describe(const std::vector<Record>& records)
{
    std::string text = "[";
    for (const Record& record : records) {
        text += Describe(record);
    }
    return text + "]";
}

inline std::string Describe(const Emporium::Properties& properties)
{
    return properties.Architecture + "|" + properties.VeyraVersion + "|" +
           Describe(properties.Packages) + Describe(properties.Operations) +
           Describe(properties.CompletedOperations);
}

} // namespace Fuzz
