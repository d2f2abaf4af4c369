// SPDX-License-Identifier: BSD-3-Clause
#pragma once

// Decodes GVariant into the snapshot, for both peers on GDBus.

#include "peers/peer.h"

#include <gio/gio.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Bench {

inline void Check(GError* error)
{
    if (error != nullptr) {
        const std::string message = error->message;
        g_error_free(error);
        throw std::runtime_error(message);
    }
}

/// Skips the dictionary of the record: GVariant reads only what is requested.
inline Emporium::Package ToPackage(GVariant* record)
{
    const char* id = nullptr;
    const char* version = nullptr;
    const char* subgroup = nullptr;
    const char* certificate = nullptr;
    g_variant_get(record, "(&s&s&s&s@a{sv})", &id, &version, &subgroup, &certificate, nullptr);
    return Emporium::Package(id, version, subgroup, certificate, {});
}

inline Emporium::Operation ToOperation(GVariant* record)
{
    const char* uuid = nullptr;
    const char* package = nullptr;
    gint32 type = 0;
    gint32 status = 0;
    gint32 error = 0;
    g_variant_get(record, "(&s&siii)", &uuid, &package, &type, &status, &error);
    return Emporium::Operation(uuid, package, static_cast<Common::OperationType>(type),
                               static_cast<Common::OperationStatus>(status),
                               static_cast<Common::ErrorCode>(error));
}

template <typename Record>
std::vector<Record> ToRecords(GVariant* properties, const char* key, const char* signature,
                              Record (*convert)(GVariant*))
{
    GVariant* const array = g_variant_lookup_value(properties, key, G_VARIANT_TYPE(signature));
    if (array == nullptr) {
        throw std::runtime_error(std::string("no property ") + key);
    }
    std::vector<Record> records;
    GVariantIter iterator;
    g_variant_iter_init(&iterator, array);
    while (GVariant* const record = g_variant_iter_next_value(&iterator)) {
        records.push_back(convert(record));
        g_variant_unref(record);
    }
    g_variant_unref(array);
    return records;
}

inline std::string ToText(GVariant* properties, const char* key)
{
    const char* text = "";
    g_variant_lookup(properties, key, "&s", &text);
    return text;
}

/// Takes ownership of the a{sv}.
inline Snapshot ToSnapshot(GVariant* properties)
{
    Snapshot snapshot;
    snapshot.architecture = ToText(properties, "Architecture");
    snapshot.veyraVersion = ToText(properties, "VeyraVersion");
    snapshot.packages = ToRecords(properties, "Packages", "a(ssssa{sv})", ToPackage);
    snapshot.operations = ToRecords(properties, "Operations", "a(ssiii)", ToOperation);
    snapshot.completedOperations =
        ToRecords(properties, "CompletedOperations", "a(ssiii)", ToOperation);
    g_variant_unref(properties);
    return snapshot;
}

/// The common part of both peers: all but the calls to the bus.
class GDBusPeer : public Peer
{
public:
    void Forget() override { m_snapshot = Snapshot(); }

    std::size_t PackageCount() override { return m_snapshot.packages.size(); }

    std::string GetVersion(const std::string& id) override
    {
        return m_snapshot.Find(id)->GetVersion();
    }

    void Settle() override
    {
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    }

    void Subscribe(PackageCallback callback) override
    {
        m_snapshot.MakeIndex();
        m_callback = std::move(callback);
    }

    void Run(const bool& goOn) override
    {
        while (goOn) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

protected:
    void OnUpgraded(GVariant* record)
    {
        const Emporium::Package package = ToPackage(record);
        m_snapshot.Upgrade(package);
        m_callback(package);
    }

    Snapshot m_snapshot;

private:
    PackageCallback m_callback;
};

} // namespace Bench
