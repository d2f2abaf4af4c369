// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>
#include <emporium/event_subscription.h>
#include <emporium/event_type.h>
#include <emporium/operation.h>
#include <emporium/operation_request.h>
#include <emporium/package.h>
#include <emporium/package_filters.h>
#include <emporium/result.h>

#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace Emporium {

class DaemonConnectionPrivate;

using OperationCallback = std::function<void(const Operation&)>;
using PackageCallback = std::function<void(const Package&)>;

/// What SubscribeToEvent() takes. A lambda with a parameter of one of the two types converts to it.
using EventCallback = std::variant<OperationCallback, PackageCallback>;

/// The application's view of the application-store daemon.
///
/// It holds a snapshot of the daemon's state, which is read once when the connection is made and is
/// kept current by the daemon's signals. Queries are answered from the snapshot, without the bus;
/// commands are blocking calls of the daemon.
///
/// **Validity.** A connection is valid unless the session bus could not be reached. On an invalid
/// one everything but `operator bool` and UnsubscribeFromEvent() throws `std::logic_error`. A bus
/// without a daemon is no such case: the connection is valid and its snapshot is empty; the reason
/// is written to standard output.
///
/// **Threads.** One thread: the one that iterates the GLib default main context. Signals are
/// received, and callbacks called, only while it does; the library starts no thread of its own.
///
/// **Lifetime.** A handle: copies share one connection, which goes with the last of them. It then
/// stores its completed operations in the application's cache directory, for the next connection
/// to read. Its subscribers are not called any more after that.
class EMPORIUM_EXPORT DaemonConnection
{
public:
    /// A connection with a snapshot and subscriptions of its own. Most applications want the
    /// process-wide one of GetDaemonConnection(): both share one cache directory.
    DaemonConnection();
    DaemonConnection(const DaemonConnection& other);
    DaemonConnection(DaemonConnection&& other) noexcept;
    DaemonConnection& operator=(const DaemonConnection& other);
    DaemonConnection& operator=(DaemonConnection&& other) noexcept;
    ~DaemonConnection();

    /// True if the connection is valid.
    explicit operator bool() const;

    /// The processor architecture and the system version that the daemon reported at the start.
    /// The references live as long as the connection.
    const std::string& GetArchitecture() const;
    const std::string& GetVeyraVersion() const;

    /// The installed packages, in the daemon's order.
    std::vector<Package> GetPackageList() const;

    /// The installed packages for which the filter returns true. An empty filter throws
    /// `std::bad_function_call`, unless there is no package to ask it about.
    std::vector<Package> GetPackageList(const PackageFilter& filter) const;

    /// The first package with this ID, compared byte for byte.
    Result<Package> GetPackage(const std::string& id) const;

    /// The operations that the daemon runs, or is about to run.
    std::vector<Operation> GetActiveOperations() const;

    /// The first active operation with this UUID. Completed ones are not searched.
    Result<Operation> GetActiveOperation(const std::string& uuid) const;

    /// The operations that completed in earlier runs of this application, oldest first, then those
    /// that the daemon knew at the start; one that is among both is in the list twice. What ends
    /// during the run is not added.
    std::vector<Operation> GetCompletedOperations() const;

    /// Asks the daemon to install or upgrade (from the request's path) or to remove (the request's
    /// ID), and gives the new operation's UUID. The operation is active from then on; follow it
    /// with EventType::OperationStatusChanged. Blocks until the daemon has answered.
    Result<std::string> CreateOperation(const OperationRequest& request) const;

    /// Start, or start anew, an application. Both block until the daemon has answered.
    Result<void> Start(const std::string& appId) const;
    Result<void> Restart(const std::string& appId) const;

    /// Has `callback` called at every event of this type, after the snapshot was changed, until the
    /// returned handle goes. Keep it: to drop it ends the subscription.
    ///
    ///     auto subscription = connection.SubscribeToEvent(
    ///         Emporium::EventType::PackageInstalled, [](const Emporium::Package& package) {
    ///             std::cout << package.GetID() << '\n';
    ///         });
    ///
    /// Callbacks are called in the order of subscription. A callback may subscribe, unsubscribe,
    /// drop handles, query, make a blocking call, or run a main loop of its own. One that was
    /// unsubscribed during an event is not called any more; one that was added is called from the
    /// next event on. An exception that leaves a callback ends the event, so that the callbacks
    /// after it miss it; it does not reach the application, since the bus library holds it back,
    /// and later events come as usual.
    ///
    /// Throws `std::logic_error` if the callback's form is not the one of the event type. An empty
    /// function of the right form is taken, and fails at the event as a throwing callback does.
    EventSubscription SubscribeToEvent(EventType type, const EventCallback& callback) const;

    /// Ends a subscription of this connection. One that is not there, or is gone, is no error.
    void UnsubscribeFromEvent(const EventSubscription& subscription);

private:
    friend class SharedDaemonConnection;
    EMPORIUM_LOCAL explicit DaemonConnection(std::shared_ptr<DaemonConnectionPrivate> shared);

    std::shared_ptr<DaemonConnectionPrivate> m_private;
};

/// The process-wide connection. The first call makes it, and with it the connection to the bus; it
/// lives until the process exits, and longer if handles of it do. If it could not be made valid it
/// stays invalid, so test it:
///
///     const auto connection = Emporium::GetDaemonConnection();
///     if (!connection) {
///         return EXIT_FAILURE;   // no session bus
///     }
///
/// While the process exits nothing is made anew: a first call then gives an invalid connection.
EMPORIUM_EXPORT DaemonConnection GetDaemonConnection();

} // namespace Emporium
