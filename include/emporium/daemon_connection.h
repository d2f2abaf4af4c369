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
#include <type_traits>
#include <variant>
#include <vector>

namespace Emporium {

class DaemonConnectionPrivate;

/// What EventType::OperationStatusChanged calls.
using OperationCallback = std::function<void(const Operation&)>;
/// What the events of packages call.
using PackageCallback = std::function<void(const Package&)>;

/// What SubscribeToEvent() takes. A lambda with a parameter of either type converts to it.
using EventCallback = std::variant<OperationCallback, PackageCallback>;

/// The application's view of the application-store daemon.
///
/// Holds a snapshot of the daemon's state, which is read once at construction and kept current by
/// the daemon's signals. Queries are answered from the snapshot, without using the bus; commands are
/// blocking calls to the daemon.
///
/// **Validity.** A connection is valid unless the session bus could not be reached. On an invalid
/// connection, everything except `operator bool` and UnsubscribeFromEvent() throws
/// `std::logic_error`. If the bus has no daemon, the connection is valid and its snapshot is empty;
/// the reason is written to standard output.
///
/// **Threads.** For use on one thread: the one that iterates the GLib default main context. Signals
/// are received and callbacks called only while it does. The library starts no thread of its own.
///
/// **Lifetime.** A handle: copies share one connection, which is destroyed with the last of them. It
/// then stores its completed operations in the application's cache directory, for the next
/// connection to read, and calls its subscribers no more.
class EMPORIUM_EXPORT DaemonConnection
{
public:
    /// Creates a connection with a snapshot and subscriptions of its own. Most applications use the
    /// process-wide connection, GetDaemonConnection(), instead: both share one cache directory.
    DaemonConnection();

    /// @name Copying and moving
    /// @{

    /// Copies share one connection.
    DaemonConnection(const DaemonConnection& other);
    DaemonConnection(DaemonConnection&& other) noexcept;
    DaemonConnection& operator=(const DaemonConnection& other);
    DaemonConnection& operator=(DaemonConnection&& other) noexcept;
    ~DaemonConnection();
    /// @}

    /// True if the connection is valid.
    explicit operator bool() const;

    /// The processor architecture as of construction, for example "aarch64"; empty if there was no
    /// daemon. The reference is valid as long as the connection.
    const std::string& GetArchitecture() const;

    /// The version of the system as of construction; empty if there was no daemon. The reference is
    /// valid as long as the connection.
    const std::string& GetVeyraVersion() const;

    /// The installed packages, in the daemon's order.
    std::vector<Package> GetPackageList() const;

    /// The installed packages for which the filter returns true. An empty filter throws
    /// `std::bad_function_call`, unless no package is installed.
    std::vector<Package> GetPackageList(const PackageFilter& filter) const;

    /// The first package with this ID, compared byte for byte.
    Result<Package> GetPackage(const std::string& id) const;

    /// The operations that are queued or running.
    std::vector<Operation> GetActiveOperations() const;

    /// The first active operation with this UUID. Does not search the completed ones.
    Result<Operation> GetActiveOperation(const std::string& uuid) const;

    /// The operations that completed in earlier runs of this application, oldest first, then those
    /// that the daemon reported at construction. An operation that is in both is listed twice.
    /// Operations that end during this run are not added.
    std::vector<Operation> GetCompletedOperations() const;

    /// Asks the daemon to install or upgrade the package file of the request, or to remove its
    /// package, and returns the UUID of the new operation. The operation is active from then on;
    /// follow it with EventType::OperationStatusChanged. Blocks until the daemon replies.
    Result<std::string> CreateOperation(const OperationRequest& request) const;

    /// Starts an application. Blocks until the daemon replies.
    Result<void> Start(const std::string& appId) const;

    /// Stops and starts an application. Blocks until the daemon replies.
    Result<void> Restart(const std::string& appId) const;

    /// Calls `callback` at every event of this type, after the snapshot has been updated. Keep the
    /// handle: destroying its last copy unsubscribes.
    ///
    ///     auto subscription = connection.SubscribeToEvent(
    ///         Emporium::EventType::PackageInstalled, [](const Emporium::Package& package) {
    ///             std::cout << package.GetID() << '\n';
    ///         });
    ///
    /// Callbacks are called in the order of subscription. A callback may subscribe, unsubscribe,
    /// destroy handles, query, make a blocking call, or run a nested main loop. A callback that is
    /// unsubscribed during an event is no longer called; one that is added is called from the next
    /// event on. If a callback throws, the callbacks after it miss the event; the bus library catches
    /// the exception, so it does not reach the application, and later events are delivered.
    ///
    /// Throws `std::logic_error` if the callback does not have the form of the event type. An empty
    /// function of the right form is accepted; its call at the event throws `std::bad_function_call`.
    [[nodiscard]] EventSubscription SubscribeToEvent(EventType type,
                                                     const EventCallback& callback) const;

    /// Explains to the author of a callback with neither form what is wrong with it.
    template <typename Callback,
              std::enable_if_t<!std::is_convertible_v<Callback, EventCallback>, int> = 0>
    EventSubscription SubscribeToEvent(EventType /*type*/, Callback&& /*callback*/) const
    {
        static_assert(std::is_convertible_v<Callback, EventCallback>,
                      "an event callback takes either a const Emporium::Package& or a "
                      "const Emporium::Operation&, not both (auto) and nothing else");
        return {};
    }

    /// Removes a subscription of this connection. Does nothing if there is none with this ID.
    void UnsubscribeFromEvent(const EventSubscription& subscription);

private:
    friend class SharedDaemonConnection;
    EMPORIUM_LOCAL explicit DaemonConnection(std::shared_ptr<DaemonConnectionPrivate> shared);

    std::shared_ptr<DaemonConnectionPrivate> m_private;
};

/// The process-wide connection. Created on first use, with the connection to the bus; lives until
/// process exit, or as long as its handles. If the bus could not be reached, it stays invalid, so
/// test it:
///
///     const auto connection = Emporium::GetDaemonConnection();
///     if (!connection) {
///         return EXIT_FAILURE;   // no session bus
///     }
///
/// During process exit, returns the existing connection or an invalid one; never creates one.
EMPORIUM_EXPORT DaemonConnection GetDaemonConnection();

} // namespace Emporium
