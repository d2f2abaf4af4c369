// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/variant.h"

#include <cstdint>
#include <string>

namespace Simulator {

/// The package record of the bus contract.
struct Package
{
    std::string id;
    std::string version;
    std::string subgroup;
    std::string developer;
    Variant data; ///< a{sv}; empty stands for an empty dictionary
};

/// The operation record of the bus contract. The numbers are those of Common::OperationType,
/// Common::OperationStatus and Common::ErrorCode, but any number can be sent.
struct Operation
{
    std::string uuid;
    std::string package;
    std::int32_t type = 0;
    std::int32_t status = 0;
    std::int32_t error = 0;
};

Variant ToVariant(const std::string& text);
Variant ToVariant(const Package& package);
Variant ToVariant(const Operation& operation);
/// True if the status is that of an ended operation.
bool IsFinished(const Operation& operation);

Package PackageFromVariant(GVariant* value);
Operation OperationFromVariant(GVariant* value);

} // namespace Simulator
