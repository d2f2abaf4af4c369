// SPDX-License-Identifier: BSD-3-Clause

// GDBus by hand: uses calls and signals of the connection itself, and unpacks GVariant with format
// strings that borrow the texts.
#include "peers/gvariant.h"

namespace {

constexpr const char* name = "org.velmora.Emporium";
constexpr const char* path = "/org/velmora/Emporium";

class HandmadePeer final : public Bench::GDBusPeer
{
public:
    void Open() override
    {
        GError* error = nullptr;
        m_connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
        Bench::Check(error);
        Connect("PackageInstalled", OnOther);
        Connect("PackageRemoved", OnOther);
        Connect("OperationStatusChanged", OnOther);
        Connect("PackageUpgraded", OnPackageUpgraded);
        Load();
    }

    void Load() override
    {
        GVariant* const reply = Call("GetAllProperties", nullptr, "(a{sv})");
        m_snapshot = Bench::ToSnapshot(g_variant_get_child_value(reply, 0));
        g_variant_unref(reply);
    }

    void Start(const std::string& id) override
    {
        g_variant_unref(Call("Start", g_variant_new("(s)", id.c_str()), "()"));
    }

private:
    GVariant* Call(const char* method, GVariant* arguments, const char* replyType)
    {
        GError* error = nullptr;
        GVariant* const reply = g_dbus_connection_call_sync(
            m_connection, name, path, name, method, arguments, G_VARIANT_TYPE(replyType),
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        Bench::Check(error);
        return reply;
    }

    void Connect(const char* signal, GDBusSignalCallback callback)
    {
        g_dbus_connection_signal_subscribe(m_connection, name, name, signal, path, nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, callback, this, nullptr);
    }

    static void OnOther(GDBusConnection*, const char*, const char*, const char*, const char*,
                        GVariant*, gpointer)
    {
    }

    static void OnPackageUpgraded(GDBusConnection*, const char*, const char*, const char*,
                                  const char*, GVariant* arguments, gpointer self)
    {
        GVariant* const record = g_variant_get_child_value(arguments, 0);
        static_cast<HandmadePeer*>(self)->OnUpgraded(record);
        g_variant_unref(record);
    }

    GDBusConnection* m_connection = nullptr;
};

} // namespace

namespace Bench {

std::unique_ptr<Peer> MakePeer()
{
    return std::make_unique<HandmadePeer>();
}

} // namespace Bench
