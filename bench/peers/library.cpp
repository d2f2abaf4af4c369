// SPDX-License-Identifier: BSD-3-Clause

// Uses the library as an application does.
#include "peers/peer.h"

#include <emporium/emporium.h>

#include <glib.h>

#include <array>
#include <optional>
#include <stdexcept>
#include <utility>

namespace {

using Emporium::EventType;

class LibraryPeer final : public Bench::Peer
{
public:
    void Open() override
    {
        m_connection = Emporium::GetDaemonConnection();
        if (!*m_connection) {
            throw std::runtime_error("the connection is not valid");
        }
        m_subscriptions = {
            Subscription(EventType::PackageInstalled),
            Subscription(EventType::PackageRemoved),
            m_connection->SubscribeToEvent(
                EventType::PackageUpgraded,
                [this](const Emporium::Package& package) { OnUpgraded(package); }),
            m_connection->SubscribeToEvent(EventType::OperationStatusChanged,
                                           [](const Emporium::Operation&) {}),
        };
    }

    // Another connection on the same proxy loads its own snapshot.
    void Load() override { m_reloaded.emplace(); }

    void Forget() override { m_reloaded.reset(); }

    std::size_t PackageCount() override { return m_connection->GetPackageList().size(); }

    std::string GetVersion(const std::string& id) override
    {
        return m_connection->GetPackage(id)->GetVersion();
    }

    void Start(const std::string& id) override
    {
        const auto result = m_connection->Start(id);
        if (!result) {
            throw std::runtime_error(result.GetError());
        }
    }

    void Settle() override
    {
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    }

    void Subscribe(PackageCallback callback) override { m_callback = std::move(callback); }

    void Run(const bool& goOn) override
    {
        while (goOn) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

private:
    Emporium::EventSubscription Subscription(EventType type)
    {
        return m_connection->SubscribeToEvent(type, [](const Emporium::Package&) {});
    }

    void OnUpgraded(const Emporium::Package& package)
    {
        if (m_callback) {
            m_callback(package);
        }
    }

    std::optional<Emporium::DaemonConnection> m_connection;
    std::optional<Emporium::DaemonConnection> m_reloaded;
    std::array<Emporium::EventSubscription, 4> m_subscriptions;
    PackageCallback m_callback;
};

} // namespace

namespace Bench {

std::unique_ptr<Peer> MakePeer()
{
    return std::make_unique<LibraryPeer>();
}

} // namespace Bench
