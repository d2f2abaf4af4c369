// SPDX-License-Identifier: BSD-3-Clause
#include "testing/bus_client.h"

#include "testing/duration.h"

#include <emporium/testing/error.h>

namespace Emporium::Testing {

namespace {

using ContextPtr = std::unique_ptr<GMainContext, ::Simulator::Releaser<g_main_context_unref>>;
using SourcePtr = std::unique_ptr<GSource, ::Simulator::Releaser<g_source_unref>>;

/// Connects in a main context of its own, because the synchronous function has no time-out and a bus
/// that is suspended accepts connections without answering.
class Connecting
{
public:
    Connecting(const std::string& address, std::chrono::milliseconds deadline)
        : m_context(g_main_context_new()), m_cancellable(g_cancellable_new()),
          m_limit(g_timeout_source_new(Milliseconds(deadline)))
    {
        g_source_set_callback(m_limit.get(), Cancel, m_cancellable.get(), nullptr);
        g_source_attach(m_limit.get(), m_context.get());
        g_main_context_push_thread_default(m_context.get());
        const auto flags =
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        g_dbus_connection_new_for_address(address.c_str(), flags, nullptr, m_cancellable.get(),
                                          Finish, this);
        while (!m_finished) {
            g_main_context_iteration(m_context.get(), TRUE);
        }
        g_main_context_pop_thread_default(m_context.get());
        g_source_destroy(m_limit.get());
    }
    Connecting(const Connecting&) = delete;
    Connecting& operator=(const Connecting&) = delete;
    ~Connecting() = default;

    ObjectPtr<GDBusConnection> Take(std::chrono::milliseconds deadline)
    {
        if (g_cancellable_is_cancelled(m_cancellable.get()) != FALSE) {
            throw DeadlineExceeded("the bus did not accept a connection within " + Text(deadline));
        }
        if (!m_connection) {
            throw Error(std::string("cannot connect to the bus: ") + m_error->message);
        }
        return std::move(m_connection);
    }

private:
    static gboolean Cancel(gpointer cancellable)
    {
        g_cancellable_cancel(static_cast<GCancellable*>(cancellable));
        return G_SOURCE_REMOVE;
    }

    static void Finish(GObject*, GAsyncResult* result, gpointer data)
    {
        auto& self = *static_cast<Connecting*>(data);
        GError* error = nullptr;
        self.m_connection.reset(g_dbus_connection_new_for_address_finish(result, &error));
        self.m_error.reset(error);
        self.m_finished = true;
    }

    ContextPtr m_context;
    ObjectPtr<GCancellable> m_cancellable;
    SourcePtr m_limit;
    ObjectPtr<GDBusConnection> m_connection;
    ErrorPtr m_error;
    bool m_finished = false;
};

} // namespace

BusClient::BusClient(const std::string& address, std::chrono::milliseconds deadline)
    : m_connection(Connecting(address, deadline).Take(deadline)), m_deadline(deadline)
{
}

BusClient::~BusClient()
{
    g_dbus_connection_close(m_connection.get(), nullptr, nullptr, nullptr);
}

VariantPtr BusClient::Call(const BusObject& object, const char* method, GVariant* arguments,
                           ErrorPtr& error) const
{
    GError* raw = nullptr;
    VariantPtr reply(g_dbus_connection_call_sync(
        m_connection.get(), object.name.c_str(), object.path, object.interface, method, arguments,
        nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, static_cast<int>(Milliseconds(m_deadline)),
        nullptr, &raw));
    error.reset(raw);
    return reply;
}

VariantPtr BusClient::CallBus(const char* method, GVariant* arguments) const
{
    ErrorPtr error;
    VariantPtr reply =
        Call({"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"}, method,
             arguments, error);
    if (reply) {
        return reply;
    }
    if (g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE) {
        throw DeadlineExceeded("the bus did not answer within " + Text(m_deadline));
    }
    g_dbus_error_strip_remote_error(error.get());
    throw Error(std::string("the bus does not answer: ") + error->message);
}

} // namespace Emporium::Testing
