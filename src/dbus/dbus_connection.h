// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <sdbus-c++/IConnection.h>

#include <memory>

namespace Emporium::DBusConnection {

struct DBusEventSource;

/// Owns the process's connection to the session bus.
class Holder
{
public:
    /// Throws sdbus::Error if the session bus cannot be reached.
    Holder();
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    sdbus::IConnection& Connection() { return *m_connection; }

    /// Asks for the name that tells who is connected. Not getting it is only worth a log line.
    void RequestConnectionName();

private:
    std::unique_ptr<sdbus::IConnection> m_connection;
};

/// Has the GLib default main context process what comes from the bus.
///
/// Two sources: one polls the bus itself, the other the descriptor by which the bus library tells
/// that messages are waiting in its own queue, read there while a call waited for its reply.
/// Without the second, those messages would stay until something else comes from the bus.
///
/// The bus library must not be entered while it is inside: it would fail, as if the bus were lost.
/// This happens when a callback runs a main loop of its own. GLib keeps out the source that is
/// being dispatched; the other one is taken out of the nested loop's poll until the dispatch is
/// over.
class EventDispatcher
{
public:
    explicit EventDispatcher(sdbus::IConnection& connection);
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;
    ~EventDispatcher();

    /// Makes the main loop dispatch messages that the bus library read while it waited for a reply.
    /// They are in its own queue, so the bus descriptor does not become readable for them.
    void WakeForQueuedMessages();

    /// Processes all that is pending. False if the bus is lost; then both sources are done with.
    bool ProcessPending();

    /// True while the bus library is inside its processing.
    bool IsProcessing() const { return m_processing; }

private:
    struct ReleaseSource
    {
        void operator()(DBusEventSource* source) const;
    };
    using SourcePointer = std::unique_ptr<DBusEventSource, ReleaseSource>;

    SourcePointer MakeSource(int descriptor);
    void ResumePolling();

    sdbus::IConnection& m_connection;
    bool m_processing = false;
    SourcePointer m_busSource;
    SourcePointer m_queueSource;
};

} // namespace Emporium::DBusConnection
