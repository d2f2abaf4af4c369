// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/wire_records.h"

#include "dbus/contract.h"

#include <common/operation_status.h>

namespace Simulator {

namespace {

Variant EmptyDictionary()
{
    return Variant(g_variant_new_array(G_VARIANT_TYPE("{sv}"), nullptr, 0));
}

} // namespace

Variant ToVariant(const std::string& text)
{
    return Variant(g_variant_new_string(text.c_str()));
}

Variant ToVariant(const Package& package)
{
    const Variant data = package.data ? package.data : EmptyDictionary();
    return Variant(g_variant_new("(ssss@a{sv})", package.id.c_str(), package.version.c_str(),
                                 package.subgroup.c_str(), package.developer.c_str(), data.Get()));
}

Variant ToVariant(const Operation& operation)
{
    return Variant(g_variant_new(Emporium::Contract::operationRecord, operation.uuid.c_str(),
                                 operation.package.c_str(), operation.type, operation.status,
                                 operation.error));
}

bool IsFinished(const Operation& operation)
{
    return Common::IsFinished(static_cast<Common::OperationStatus>(operation.status));
}

Package PackageFromVariant(GVariant* value)
{
    const char* id = nullptr;
    const char* version = nullptr;
    const char* subgroup = nullptr;
    const char* developer = nullptr;
    GVariant* data = nullptr;
    g_variant_get(value, "(&s&s&s&s@a{sv})", &id, &version, &subgroup, &developer, &data);
    return {id, version, subgroup, developer, Variant(data)};
}

Operation OperationFromVariant(GVariant* value)
{
    Operation operation;
    const char* uuid = nullptr;
    const char* package = nullptr;
    g_variant_get(value, "(&s&siii)", &uuid, &package, &operation.type, &operation.status,
                  &operation.error);
    operation.uuid = uuid;
    operation.package = package;
    return operation;
}

} // namespace Simulator
