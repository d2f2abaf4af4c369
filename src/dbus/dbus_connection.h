// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <sdbus-c++/IConnection.h>

#include <functional>
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

    /// Requests the name that identifies the application on the bus. A failure is only logged.
    void RequestConnectionName();

private:
    std::unique_ptr<sdbus::IConnection> m_connection;
};

/// Processes bus messages in the GLib default main context.
///
/// One source polls the bus descriptor. A second one polls the descriptor by which the bus library
/// announces messages in its own queue, which it read while a call waited for its reply; without it
/// they would wait for the next message from the bus.
///
/// `processPendingEvent()` is not re-entrant: it fails as if the bus were lost. A callback that
/// runs a main loop would re-enter it. GLib does not dispatch the source that is being dispatched;
/// the other one is not polled until the dispatch ends.
class EventDispatcher
{
public:
    /// Calls `onLost` from the main loop when the bus is lost.
    EventDispatcher(sdbus::IConnection& connection, std::function<void()> onLost);
    EventDispatcher(const EventDispatcher&) = delete;
    EventDispatcher& operator=(const EventDispatcher&) = delete;
    ~EventDispatcher();

    /// Makes the main loop dispatch messages that the bus library read while it waited for a reply.
    /// They are in its own queue, so the bus descriptor does not become readable for them.
    void WakeForQueuedMessages();

    /// Processes all pending messages. False if the bus is lost; both sources are then destroyed.
    bool ProcessPending();

    /// True during ProcessPending().
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
    const std::function<void()> m_onLost;
    bool m_processing = false;
    SourcePointer m_busSource;
    SourcePointer m_queueSource;
};

} // namespace Emporium::DBusConnection
