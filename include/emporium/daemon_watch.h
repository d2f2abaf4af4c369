// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace Emporium {

class DaemonWatchPrivate;

/// Whether the daemon can be reached. New states may be added, so a `switch` needs a default.
enum class DaemonState : std::int32_t
{
    Present = 0,      ///< A process owns the daemon's name on the bus.
    Absent = 1,       ///< No process owns it, or none is known yet.
    Disconnected = 2, ///< The bus is lost, or could not be reached. Never changes again.
};

/// What a DaemonWatch calls.
using DaemonStateCallback = std::function<void(DaemonState)>;

/// Watches whether the daemon is on the bus.
///
/// A DaemonConnection follows a daemon that restarts, but does not reload its snapshot, so it misses
/// what changed meanwhile. A new connection loads the state of the new daemon. An application that
/// waits for an operation looks it up there:
///
///     std::optional<Emporium::DaemonConnection> latest;
///     const Emporium::DaemonWatch watch([&](Emporium::DaemonState state) {
///         if (state == Emporium::DaemonState::Present) {
///             latest.emplace();
///             if (latest->GetActiveOperation(uuid).HasError()) {
///                 // It has ended, or the new daemon does not know it.
///             }
///         }
///     });
///
/// **Callback.** Called at every change of the state, in the main loop, in order with the events of
/// the daemon: those that precede it on the bus are delivered before it. If another process takes
/// over the daemon's name, the state is Absent, then Present. The callback may do everything that the
/// callback of an event may do, and may destroy the watch. An exception from it is logged, and the
/// other watches are still called.
///
/// **Threads.** For use on the thread that iterates the GLib default main context.
///
/// **Lifetime.** A handle: copies share one watch, which ends with the last of them; its callback is
/// then no longer called. A watch uses the connection of the process to the bus and opens it if there
/// is none. May be a global. A handle that was moved from may only be assigned to or destroyed.
class EMPORIUM_EXPORT DaemonWatch
{
public:
    /// Does not block. If a DaemonConnection has loaded its snapshot before, the state is Present at
    /// once; otherwise it is Absent until the main loop iterates, which then calls the callback. An
    /// empty callback is accepted.
    ///
    /// If the bus cannot be reached, the state is Disconnected, and the reason is written to standard
    /// output.
    [[nodiscard]] explicit DaemonWatch(const DaemonStateCallback& callback);

    /// @name Copying and moving
    /// @{

    /// Copies share one watch.
    DaemonWatch(const DaemonWatch& other);
    DaemonWatch(DaemonWatch&& other) noexcept;
    DaemonWatch& operator=(const DaemonWatch& other);
    DaemonWatch& operator=(DaemonWatch&& other) noexcept;
    ~DaemonWatch();
    /// @}

    /// The state that the callback was last called with, or the one at construction.
    DaemonState State() const;

private:
    std::shared_ptr<DaemonWatchPrivate> m_private;
};

} // namespace Emporium
