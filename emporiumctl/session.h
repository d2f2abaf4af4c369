// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/failure.h"
#include "emporiumctl/interruption.h"
#include "emporiumctl/output.h"
#include "emporiumctl/snapshot.h"

#include <emporium/emporium.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

namespace EmporiumCtl {

/// The program's use of the bus: the connection, the state of the daemon, and the main loop.
class Session
{
public:
    Session(Output& out, Interruption& interruption) : m_out(out), m_interruption(interruption) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Connects to the bus alone; the daemon may be absent.
    std::optional<Failure> ConnectToBus();
    /// Connects to the bus and the daemon. Afterwards Connection() is valid and has its snapshot.
    std::optional<Failure> Connect();

    bool HasBus() const { return m_connection && *m_connection; }
    const Emporium::DaemonConnection& Connection() const { return *m_connection; }
    Emporium::DaemonState State() const { return m_watch->State(); }
    /// The next change of the state that the main loop has delivered, oldest first.
    std::optional<Emporium::DaemonState> NextChange();

    /// Loads the daemon's present state, which the connection does not do again. Blocks: use Call().
    std::variant<Snapshot, Failure> Reload();

    /// Runs a call of the library. If it is interrupted, calls `report` and ends the process.
    template <typename Function>
    auto Call(std::function<void()> report, Function call)
    {
        const Interruption::BlockingCall guard(m_interruption, std::move(report));
        return call();
    }

    /// Waits for an event and dispatches it.
    void Iterate();
    /// Dispatches the pending events. Must precede long calls: the bus library closes the
    /// connection if it cannot deliver the replies to its own requests in time.
    void Settle();
    bool Interrupted() const { return m_interruption.Happened(); }
    const Interruption& TheInterruption() const { return m_interruption; }

private:
    Output& m_out;
    Interruption& m_interruption;
    std::unique_ptr<Emporium::DaemonConnection> m_connection;
    std::optional<Failure> m_loadFailure;
    std::deque<Emporium::DaemonState> m_changes;
    std::unique_ptr<Emporium::DaemonWatch> m_watch;
};

/// The failure of a command whose bus is lost.
Failure LostBus();

} // namespace EmporiumCtl
