// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/dbus_connection.h"

#include "common/log/log_message.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Types.h>

#include <glib.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <sys/eventfd.h>
#include <utility>

namespace Emporium::DBusConnection {

using Common::LogLevel;
using Common::LogMessage;

/// The GSource comes first, so that GLib can treat the record as one.
struct DBusEventSource
{
    GSource base;
    GPollFD pollfd;
    EventDispatcher* dispatcher;
    bool suspended; ///< Not polled until the current dispatch ends.
};

namespace {

DBusEventSource* FromBase(GSource* base)
{
    return reinterpret_cast<DBusEventSource*>(base);
}

/// A source that is polled but cannot be dispatched would make the nested loop spin.
void SuspendPolling(DBusEventSource& source)
{
    g_source_remove_poll(&source.base, &source.pollfd);
    source.suspended = true;
}

// IsProcessing() is true here only in a loop that is nested in a dispatch.
gboolean Prepare(GSource* base, gint* timeout)
{
    DBusEventSource& source = *FromBase(base);
    if (source.dispatcher->IsProcessing() && !source.suspended) {
        SuspendPolling(source);
    }
    *timeout = -1;
    return FALSE;
}

gboolean Check(GSource* base)
{
    return (FromBase(base)->pollfd.revents & G_IO_IN) != 0 ? TRUE : FALSE;
}

gboolean Dispatch(GSource* base, GSourceFunc, gpointer)
{
    return FromBase(base)->dispatcher->ProcessPending() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

void Finalize(GSource*) {}

GSourceFuncs sourceFunctions{Prepare, Check, Dispatch, Finalize, nullptr, nullptr};

} // namespace

Holder::Holder() : m_connection(sdbus::createSessionBusConnection()) {}

void Holder::RequestConnectionName()
{
    const char* const applicationID = std::getenv("VEYRA_APP_ID");
    if (applicationID == nullptr) {
        LogMessage(LogLevel::Warning)
            << "Failed to get application ID to register a dbus connection name";
        return;
    }
    const std::string name = std::string(applicationID) + ".KVD.Connection";
    try {
        m_connection->requestName(sdbus::ServiceName(name));
    } catch (const sdbus::Error& error) {
        LogMessage(LogLevel::Warning) << "Failed to register the " << name
                                      << " dbus connection name (" << error.getMessage() << ")";
    }
}

EventDispatcher::EventDispatcher(sdbus::IConnection& connection, std::function<void()> onLost)
    : m_connection(connection), m_onLost(std::move(onLost)),
      m_busSource(MakeSource(connection.getEventLoopPollData().fd)),
      m_queueSource(MakeSource(connection.getEventLoopPollData().eventFd))
{
}

EventDispatcher::~EventDispatcher() = default;

EventDispatcher::SourcePointer EventDispatcher::MakeSource(int descriptor)
{
    SourcePointer source(FromBase(g_source_new(&sourceFunctions, sizeof(DBusEventSource))));
    source->pollfd = GPollFD{descriptor, G_IO_IN, 0};
    source->dispatcher = this;
    source->suspended = false;
    g_source_add_poll(&source->base, &source->pollfd);
    g_source_attach(&source->base, g_main_context_default());
    return source;
}

void EventDispatcher::WakeForQueuedMessages()
{
    try {
        const auto pollData = m_connection.getEventLoopPollData();
        if (pollData.timeout == std::chrono::microseconds::zero()) {
            eventfd_write(pollData.eventFd, 1);
        }
    } catch (const sdbus::Error&) {
        return; // The bus is lost; the next dispatch reports it.
    }
}

bool EventDispatcher::ProcessPending()
{
    // A nested loop may dispatch a source that was ready before the outer dispatch began. The outer
    // dispatch delivers the waiting messages when it continues.
    if (m_processing) {
        return true;
    }
    bool connected = true;
    m_processing = true;
    try {
        while (m_connection.processPendingEvent()) {
        }
    } catch (const sdbus::Error& error) {
        LogMessage(LogLevel::Error)
            << "Failed to process dbus connection events (" << error.getMessage() << ")";
        g_source_destroy(&m_busSource->base);
        g_source_destroy(&m_queueSource->base);
        connected = false;
    }
    m_processing = false;
    if (connected) {
        ResumePolling();
    } else {
        m_onLost();
    }
    return connected;
}

void EventDispatcher::ResumePolling()
{
    for (DBusEventSource* source : {m_busSource.get(), m_queueSource.get()}) {
        if (source->suspended) {
            source->suspended = false;
            g_source_add_poll(&source->base, &source->pollfd);
        }
    }
}

void EventDispatcher::ReleaseSource::operator()(DBusEventSource* source) const
{
    g_source_destroy(&source->base); // no longer polls it
    g_source_unref(&source->base);
}

} // namespace Emporium::DBusConnection
