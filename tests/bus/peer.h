// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/contract.h"
#include "support/gobject.h"

#include <gio/gio.h>

#include <stdexcept>
#include <string>

namespace TestSupport {

/// A participant of the bus by GDBus alone: it can say anything, and own names.
class Peer
{
public:
    explicit Peer(const std::string& address)
        : m_connection(g_dbus_connection_new_for_address_sync(
              address.c_str(),
              static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
              nullptr, nullptr, nullptr))
    {
        if (!m_connection) {
            throw std::runtime_error("the bus cannot be reached");
        }
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer()
    {
        if (m_connection) {
            g_dbus_connection_close_sync(m_connection.get(), nullptr, nullptr);
        }
    }

    /// Takes the daemon's name, from its owner if that allows it.
    void OwnDaemonName() { OwnName(Emporium::Contract::busName); }

    void OwnName(const char* name)
    {
        constexpr unsigned allowReplacement = 1;
        constexpr unsigned replaceExisting = 2;
        constexpr unsigned doNotQueue = 4;
        const Owned<GVariant> reply =
            CallBus("RequestName",
                    g_variant_new("(su)", name, allowReplacement | replaceExisting | doNotQueue));
        constexpr unsigned primaryOwner = 1;
        unsigned answer = 0;
        g_variant_get(reply.get(), "(u)", &answer);
        if (answer != primaryOwner) {
            throw std::runtime_error("the name cannot be taken");
        }
    }

    void ReleaseDaemonName()
    {
        CallBus("ReleaseName", g_variant_new("(s)", Emporium::Contract::busName));
    }

    std::string UniqueName() const { return g_dbus_connection_get_unique_name(m_connection.get()); }

    std::string OwnerOf(const char* name)
    {
        const Owned<GVariant> reply = CallBus("GetNameOwner", g_variant_new("(s)", name));
        const char* owner = nullptr;
        g_variant_get(reply.get(), "(&s)", &owner);
        return owner;
    }

    bool NameHasOwner(const char* name)
    {
        const Owned<GVariant> reply = CallBus("NameHasOwner", g_variant_new("(s)", name));
        gboolean owned = FALSE;
        g_variant_get(reply.get(), "(b)", &owned);
        return owned != FALSE;
    }

    /// One of the daemon's signals with a body in GVariant text, to one destination or, if that is
    /// null, to everyone who asked for such signals.
    void Emit(const char* destination, const char* signal, const char* body)
    {
        Emit(destination, Emporium::Contract::objectPath, Emporium::Contract::interfaceName, signal,
             body);
    }

    void Emit(const char* destination, const char* path, const char* interface, const char* signal,
              const char* body)
    {
        GVariant* const arguments = g_variant_parse(nullptr, body, nullptr, nullptr, nullptr);
        g_dbus_connection_emit_signal(m_connection.get(), destination, path, interface, signal,
                                      arguments, nullptr);
        g_variant_unref(arguments);
    }

    /// The bus has dispatched everything that was sent so far.
    void Settle() { CallBus("GetId", nullptr); }

    GDBusConnection* Connection() { return m_connection.get(); }

private:
    Owned<GVariant> CallBus(const char* method, GVariant* arguments)
    {
        GError* raw = nullptr;
        Owned<GVariant> reply(g_dbus_connection_call_sync(
            m_connection.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
            "org.freedesktop.DBus", method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
            &raw));
        const Owned<GError> error(raw);
        if (error) {
            throw std::runtime_error(error->message);
        }
        return reply;
    }

    Owned<GDBusConnection> m_connection;
};

} // namespace TestSupport
