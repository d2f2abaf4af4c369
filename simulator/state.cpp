// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/state.h"

#include <algorithm>

namespace Simulator {

PackageRecord* State::FindPackage(const std::string& id)
{
    const auto package =
        std::find_if(packages.begin(), packages.end(),
                     [&](const PackageRecord& candidate) { return candidate.id == id; });
    return package != packages.end() ? &*package : nullptr;
}

State BuiltInState()
{
    State state;
    state.architecture = "aarch64";
    state.veyraVersion = "5.1.0";
    state.packages = {
        {"org.velmora.settings", "2.4.0", "system", "velmora-system", 2},
        {"org.velmora.browser", "11.0.3", "system", "velmora-system", 2},
        {"org.example.calculator", "1.2.0", "regular", "example-developer", 1},
        {"org.example.weather", "0.9.1", "regular", "example-developer", 1},
        {"com.acme.notes", "3.0.0", "regular", "acme", 0},
        {"net.sample.chess", "1.0.0", "games", "sample", 0},
    };
    return state;
}

std::vector<PackageRecord> MadeUpPackages(unsigned count, unsigned dictionaryEntries)
{
    std::vector<PackageRecord> packages;
    packages.reserve(count);
    for (unsigned number = 0; number < count; ++number) {
        const std::string text = std::to_string(number);
        packages.push_back({"org.example.application" + text, "1." + text,
                            number % 2 == 0 ? "regular" : "system",
                            "developer" + std::to_string(number % 100), dictionaryEntries});
    }
    return packages;
}

GVariant* ToVariant(const PackageRecord& package)
{
    GVariantBuilder dictionary;
    g_variant_builder_init(&dictionary, G_VARIANT_TYPE("a{sv}"));
    for (unsigned number = 0; number < package.dictionaryEntries; ++number) {
        const std::string key = "Key" + std::to_string(number);
        GVariant* const value =
            number % 2 == 0 ? g_variant_new_string("value") : g_variant_new_uint32(number);
        g_variant_builder_add(&dictionary, "{sv}", key.c_str(), value);
    }
    return g_variant_new("(ssssa{sv})", package.id.c_str(), package.version.c_str(),
                         package.subgroup.c_str(), package.certificateID.c_str(), &dictionary);
}

GVariant* ToVariant(const OperationRecord& operation)
{
    return g_variant_new("(ssiii)", operation.uuid.c_str(), operation.packageID.c_str(),
                         static_cast<gint32>(operation.type), static_cast<gint32>(operation.status),
                         static_cast<gint32>(operation.errorCode));
}

namespace {

template <typename Record>
GVariant* ListToVariant(const char* type, const std::vector<Record>& records)
{
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE(type));
    for (const Record& record : records) {
        g_variant_builder_add_value(&list, ToVariant(record));
    }
    return g_variant_builder_end(&list);
}

} // namespace

GVariant* ToVariant(const std::vector<PackageRecord>& packages)
{
    return ListToVariant("a(ssssa{sv})", packages);
}

GVariant* ToVariant(const std::vector<OperationRecord>& operations)
{
    return ListToVariant("a(ssiii)", operations);
}

} // namespace Simulator
