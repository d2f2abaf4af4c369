// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "glib_ptr.h"

#include <cstdint>
#include <string>

namespace Simulator {

enum class OperationType : std::int32_t
{
    Install = 0,
    Upgrade = 1,
    Remove = 2
};

constexpr std::int32_t statusDone = 100;
constexpr std::int32_t statusFailed = 101;

struct Package
{
    std::string id;
    std::string version;
    std::string subgroup;
    std::string developer;
    Variant data; ///< a{sv}; empty stands for an empty dictionary
};

struct Operation
{
    std::string uuid;
    std::string package;
    std::int32_t type = 0;
    std::int32_t status = 0;
    std::int32_t error = 0;
};

constexpr const char* packageSignature = "(ssssa{sv})";
constexpr const char* operationSignature = "(ssiii)";

Variant ToVariant(const Package& package);
Variant ToVariant(const Operation& operation);
Package PackageFromVariant(GVariant* value);
Operation OperationFromVariant(GVariant* value);

/// The body of a message with one argument.
Variant Body(const Variant& argument);

Variant EmptyDictionary();
std::string NewUuid();

} // namespace Simulator
