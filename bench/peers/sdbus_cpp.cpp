// SPDX-License-Identifier: BSD-3-Clause

// The obvious sdbus-c++: uses the convenience layer with its own types, a map of variants for the
// properties and one for every dictionary.
#include "peers/peer.h"

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <map>
#include <poll.h>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* interfaceName = "org.velmora.Emporium";

using Dictionary = std::map<std::string, sdbus::Variant>;
using PackageRecord = sdbus::Struct<std::string, std::string, std::string, std::string, Dictionary>;
using OperationRecord =
    sdbus::Struct<std::string, std::string, std::int32_t, std::int32_t, std::int32_t>;

Emporium::Package ToPackage(const PackageRecord& record)
{
    return Emporium::Package(record.get<0>(), record.get<1>(), record.get<2>(), record.get<3>(),
                             {});
}

std::vector<Emporium::Package> ToPackages(const sdbus::Variant& records)
{
    std::vector<Emporium::Package> packages;
    for (const auto& record : records.get<std::vector<PackageRecord>>()) {
        packages.push_back(ToPackage(record));
    }
    return packages;
}

std::vector<Emporium::Operation> ToOperations(const sdbus::Variant& records)
{
    std::vector<Emporium::Operation> operations;
    for (const auto& record : records.get<std::vector<OperationRecord>>()) {
        operations.emplace_back(record.get<0>(), record.get<1>(),
                                static_cast<Common::OperationType>(record.get<2>()),
                                static_cast<Common::OperationStatus>(record.get<3>()),
                                static_cast<Common::ErrorCode>(record.get<4>()));
    }
    return operations;
}

class SdbusCppPeer final : public Bench::Peer
{
public:
    void Open() override
    {
        m_connection = sdbus::createSessionBusConnection();
        m_proxy = sdbus::createProxy(*m_connection, sdbus::ServiceName(interfaceName),
                                     sdbus::ObjectPath("/org/velmora/Emporium"));
        m_proxy->uponSignal("PackageInstalled")
            .onInterface(interfaceName)
            .call([](const PackageRecord&) {});
        m_proxy->uponSignal("PackageRemoved")
            .onInterface(interfaceName)
            .call([](const std::string&) {});
        m_proxy->uponSignal("OperationStatusChanged")
            .onInterface(interfaceName)
            .call([](const OperationRecord&) {});
        m_proxy->uponSignal("PackageUpgraded")
            .onInterface(interfaceName)
            .call([this](const PackageRecord& record) { Upgrade(ToPackage(record)); });
        Load();
    }

    void Load() override
    {
        std::map<std::string, sdbus::Variant> properties;
        m_proxy->callMethod("GetAllProperties")
            .onInterface(interfaceName)
            .storeResultsTo(properties);
        Bench::Snapshot snapshot;
        snapshot.architecture = properties.at("Architecture").get<std::string>();
        snapshot.veyraVersion = properties.at("VeyraVersion").get<std::string>();
        snapshot.packages = ToPackages(properties.at("Packages"));
        snapshot.operations = ToOperations(properties.at("Operations"));
        snapshot.completedOperations = ToOperations(properties.at("CompletedOperations"));
        m_snapshot = std::move(snapshot);
    }

    void Forget() override { m_snapshot = Bench::Snapshot(); }

    std::size_t PackageCount() override { return m_snapshot.packages.size(); }

    std::string GetVersion(const std::string& id) override
    {
        return m_snapshot.Find(id)->GetVersion();
    }

    void Start(const std::string& id) override
    {
        m_proxy->callMethod("Start").onInterface(interfaceName).withArguments(id);
    }

    void Settle() override
    {
        while (m_connection->processPendingEvent()) {
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
            if (!m_connection->processPendingEvent()) {
                Wait();
            }
        }
    }

private:
    void Upgrade(const Emporium::Package& package)
    {
        m_snapshot.Upgrade(package);
        m_callback(package);
    }

    void Wait()
    {
        const auto data = m_connection->getEventLoopPollData();
        pollfd descriptors[] = {{data.fd, data.events, 0}, {data.eventFd, POLLIN, 0}};
        poll(descriptors, 2, data.getPollTimeout());
    }

    std::unique_ptr<sdbus::IConnection> m_connection;
    std::unique_ptr<sdbus::IProxy> m_proxy;
    Bench::Snapshot m_snapshot;
    PackageCallback m_callback;
};

} // namespace

namespace Bench {

std::unique_ptr<Peer> MakePeer()
{
    return std::make_unique<SdbusCppPeer>();
}

} // namespace Bench
