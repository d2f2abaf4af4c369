// SPDX-License-Identifier: BSD-3-Clause

// GDBus with the code of gdbus-codegen: a proxy class with a function for each method and a GObject
// signal for each signal.
#include "emporium_generated.h"
#include "peers/gvariant.h"

namespace {

class GeneratedPeer final : public Bench::GDBusPeer
{
public:
    void Open() override
    {
        GError* error = nullptr;
        m_proxy = peer_org_velmora_emporium_proxy_new_for_bus_sync(
            G_BUS_TYPE_SESSION, G_DBUS_PROXY_FLAGS_NONE, "org.velmora.Emporium",
            "/org/velmora/Emporium", nullptr, &error);
        Bench::Check(error);
        g_signal_connect(m_proxy, "package-installed", G_CALLBACK(OnOther), this);
        g_signal_connect(m_proxy, "package-removed", G_CALLBACK(OnPackageRemoved), this);
        g_signal_connect(m_proxy, "operation-status-changed", G_CALLBACK(OnOther), this);
        g_signal_connect(m_proxy, "package-upgraded", G_CALLBACK(OnPackageUpgraded), this);
        Load();
    }

    void Load() override
    {
        GVariant* properties = nullptr;
        GError* error = nullptr;
        peer_org_velmora_emporium_call_get_all_properties_sync(m_proxy, &properties, nullptr,
                                                               &error);
        Bench::Check(error);
        m_snapshot = Bench::ToSnapshot(properties);
    }

    void Start(const std::string& id) override
    {
        GError* error = nullptr;
        peer_org_velmora_emporium_call_start_sync(m_proxy, id.c_str(), nullptr, &error);
        Bench::Check(error);
    }

private:
    static void OnOther(PeerOrgVelmoraEmporium*, GVariant*, gpointer) {}
    static void OnPackageRemoved(PeerOrgVelmoraEmporium*, const char*, gpointer) {}

    static void OnPackageUpgraded(PeerOrgVelmoraEmporium*, GVariant* record, gpointer self)
    {
        static_cast<GeneratedPeer*>(self)->OnUpgraded(record);
    }

    PeerOrgVelmoraEmporium* m_proxy = nullptr;
};

} // namespace

namespace Bench {

std::unique_ptr<Peer> MakePeer()
{
    return std::make_unique<GeneratedPeer>();
}

} // namespace Bench
