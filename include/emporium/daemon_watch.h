// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace Emporium {

class DaemonWatchPrivate;

enum class DaemonState : std::int32_t
{
    Present = 0,      ///< A process owns the daemon's name on the bus.
    Absent = 1,       ///< No process owns it, or none is known yet.
    Disconnected = 2, ///< The bus is lost, or could not be reached. Never changes again.
};

using DaemonStateCallback = std::function<void(DaemonState)>;

/// Watches whether the daemon is there.
///
/// A DaemonConnection follows a daemon that is restarted, but keeps the snapshot of its construction:
/// what changed in between is not reported. A new connection reads the state of the new daemon. For
/// example, for an operation that the application waits for:
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
/// the daemon: those that precede it on the bus are delivered before it. A daemon that is replaced by
/// another one without a gap is Absent, then Present. The callback may do whatever an event's
/// callback may, and may destroy the watch. An exception from it is dropped; other watches are called
/// all the same.
///
/// **Threads.** For use on the thread that iterates the GLib default main context.
///
/// **Lifetime.** A handle: copies share one watch. Destroying the last one ends it; the callback is
/// not called any more. A watch uses the process's connection to the bus and opens it if there is
/// none. May be a global. A handle that was moved from may only be assigned to or destroyed.
class EMPORIUM_EXPORT DaemonWatch
{
public:
    /// Does not wait for the bus to say whether the daemon is there. After a DaemonConnection has
    /// loaded its snapshot, the state is Present at once; otherwise it is Absent until the main loop
    /// runs, which then calls the callback. An empty callback is accepted.
    ///
    /// If the bus cannot be reached, the state is Disconnected, and the reason is written to standard
    /// output.
    explicit DaemonWatch(const DaemonStateCallback& callback);
    DaemonWatch(const DaemonWatch& other);
    DaemonWatch(DaemonWatch&& other) noexcept;
    DaemonWatch& operator=(const DaemonWatch& other);
    DaemonWatch& operator=(DaemonWatch&& other) noexcept;
    ~DaemonWatch();

    /// The state at construction, then the one that the callback was last called with.
    DaemonState State() const;

private:
    std::shared_ptr<DaemonWatchPrivate> m_private;
};

} // namespace Emporium
