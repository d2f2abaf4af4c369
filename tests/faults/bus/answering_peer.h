// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "bus/peer.h"

#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace TestSupport {

namespace Contract = Emporium::Contract;

/// A peer that answers the daemon's methods: with a snapshot of one completed operation, which has its
/// architecture, and without content.
class AnsweringPeer : public Peer
{
public:
    AnsweringPeer(const std::string& address, std::string architecture)
        : Peer(address), m_architecture(std::move(architecture)),
          m_filter(g_dbus_connection_add_filter(Connection(), OnMessage, this, nullptr))
    {
    }
    AnsweringPeer(const AnsweringPeer&) = delete;
    AnsweringPeer& operator=(const AnsweringPeer&) = delete;
    ~AnsweringPeer() { g_dbus_connection_remove_filter(Connection(), m_filter); }

    /// Called before the next call is answered, on another thread.
    std::function<void()> beforeReply = [] {};

    /// The byte order of what is sent.
    GDBusMessageByteOrder byteOrder = G_BYTE_ORDER == G_LITTLE_ENDIAN
                                          ? G_DBUS_MESSAGE_BYTE_ORDER_LITTLE_ENDIAN
                                          : G_DBUS_MESSAGE_BYTE_ORDER_BIG_ENDIAN;

    /// Sends one of the daemon's signals with a body in GVariant text.
    void EmitInByteOrder(const char* signal, const char* body)
    {
        GDBusMessage* const message =
            g_dbus_message_new_signal(Contract::objectPath, Contract::interfaceName, signal);
        const Owned<GVariant> content(g_variant_parse(nullptr, body, nullptr, nullptr, nullptr));
        g_dbus_message_set_body(message, content.get());
        Send(message);
    }

    void RequestName(unsigned flags)
    {
        const Owned<GVariant> answer(g_dbus_connection_call_sync(
            Connection(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "RequestName", g_variant_new("(su)", Contract::busName, flags), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
        if (!answer) {
            throw std::runtime_error("the name cannot be requested");
        }
    }

private:
    static GDBusMessage* OnMessage(GDBusConnection*, GDBusMessage* message, gboolean incoming,
                                   gpointer peer)
    {
        const char* const interface = g_dbus_message_get_interface(message);
        if (incoming == FALSE || interface == nullptr ||
            std::string_view(interface) != Contract::interfaceName ||
            g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
            return message;
        }
        // GDBus calls this on the thread that serves all peers; waiting for one of them needs another.
        AnsweringPeer& self = *static_cast<AnsweringPeer*>(peer);
        self.m_answering = std::jthread([&self, message] {
            self.Answer(message);
            g_object_unref(message);
        });
        return nullptr;
    }

    void Answer(GDBusMessage* call)
    {
        std::exchange(beforeReply, [] {})();
        GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
        if (std::string_view(g_dbus_message_get_member(call)) ==
            Contract::Method::getAllProperties) {
            const std::string snapshot =
                "({'Architecture': <'" + m_architecture +
                "'>, 'VeyraVersion': <'1'>, 'Packages': <@a(ssssa{sv}) []>, "
                "'Operations': <@a(ssiii) []>, 'CompletedOperations': "
                "<[('completed', 'p', 0, 100, 0)]>},)";
            const Owned<GVariant> body(
                g_variant_parse(nullptr, snapshot.c_str(), nullptr, nullptr, nullptr));
            g_dbus_message_set_body(reply, body.get());
        }
        Send(reply);
    }

    void Send(GDBusMessage* message)
    {
        g_dbus_message_set_byte_order(message, byteOrder);
        g_dbus_connection_send_message(Connection(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
        g_object_unref(message);
    }

    const std::string m_architecture;
    const guint m_filter;
    std::jthread m_answering;
};

} // namespace TestSupport
