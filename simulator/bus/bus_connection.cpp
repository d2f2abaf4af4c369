// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/bus/bus_connection.h"

#include "simulator/bus/bus_error.h"
#include "simulator/trace.h"

namespace Simulator {

namespace {

constexpr guint32 doNotQueue = 4;
constexpr guint32 primaryOwner = 1;
constexpr guint32 alreadyOwner = 4;

Variant CallBus(GDBusConnection* connection, const char* method, GVariant* arguments)
{
    ErrorSlot error;
    Variant reply(g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
        arguments, G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error));
    if (!reply) {
        throw std::runtime_error(error.Message());
    }
    return reply;
}

GDBusConnection* Connect(const std::string& wanted)
{
    ErrorSlot error;
    TextPtr address(wanted.empty()
                        ? g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error)
                        : g_strdup(wanted.c_str()));
    if (!address) {
        throw NoBus("no session bus: " + error.Message());
    }
    const auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    GDBusConnection* connection =
        g_dbus_connection_new_for_address_sync(address.get(), flags, nullptr, nullptr, &error);
    if (connection == nullptr) {
        throw NoBus("cannot connect to the bus: " + error.Message());
    }
    return connection;
}

} // namespace

BusConnection::BusConnection(const std::string& address) : m_connection(Connect(address))
{
    g_dbus_connection_set_exit_on_close(Get(), FALSE);
    m_closedHandler = g_signal_connect(Get(), "closed", G_CALLBACK(Closed), this);
}

BusConnection::~BusConnection()
{
    Close();
    g_signal_handler_disconnect(Get(), m_closedHandler);
}

void BusConnection::Own(const char* name)
{
    const Variant reply = CallBus(Get(), "RequestName", g_variant_new("(su)", name, doNotQueue));
    guint32 result = 0;
    g_variant_get(reply.Get(), "(u)", &result);
    if (result != primaryOwner && result != alreadyOwner) {
        throw std::runtime_error(std::string("another program owns the bus name ") + name);
    }
}

void BusConnection::Release(const char* name)
{
    CallBus(Get(), "ReleaseName", g_variant_new("(s)", name));
}

void BusConnection::Emit(const SignalAddress& address, const Variant& body, unsigned count)
{
    for (unsigned i = 0; i < count; ++i) {
        Trace::Print("signal", address.name, body.Get());
        ErrorSlot error;
        if (g_dbus_connection_emit_signal(Get(), nullptr, address.path.c_str(),
                                          address.interface.c_str(), address.name.c_str(),
                                          body.Get(), &error) == FALSE) {
            throw BusError("org.freedesktop.DBus.Error.Failed", error.Message());
        }
    }
}

void BusConnection::Close()
{
    if (g_dbus_connection_is_closed(Get()) != FALSE) {
        return;
    }
    g_dbus_connection_flush_sync(Get(), nullptr, nullptr);
    g_dbus_connection_close_sync(Get(), nullptr, nullptr);
}

void BusConnection::OnLost(std::function<void()> function)
{
    m_lost = std::move(function);
}

void BusConnection::Closed(GDBusConnection*, gboolean remote, GError*, gpointer data)
{
    const auto* bus = static_cast<BusConnection*>(data);
    if (remote != FALSE && bus->m_lost) {
        bus->m_lost();
    }
}

} // namespace Simulator
