// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "client/keyed_list.h"
#include "client/subscriber_list.h"
#include "dbus/idbus_proxy.h"

#include <emporium/operation.h>
#include <emporium/package.h>

#include <boost/signals2/connection.hpp>

#include <array>
#include <memory>
#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace Emporium {

using PackageList = KeyedList<Package, &Package::GetID>;
using OperationList = KeyedList<Operation, &Operation::GetUUID>;

/// What the copies of a DaemonConnection share: the snapshot, its upkeep and the subscribers.
///
/// All of it belongs to the thread that iterates the GLib default main context; nothing is locked.
class DaemonConnectionPrivate : public std::enable_shared_from_this<DaemonConnectionPrivate>
{
public:
    DaemonConnectionPrivate();
    DaemonConnectionPrivate(const DaemonConnectionPrivate&) = delete;
    DaemonConnectionPrivate& operator=(const DaemonConnectionPrivate&) = delete;
    ~DaemonConnectionPrivate();

    /// Writes the completed operations to the cache on the first call; does nothing later, or in a
    /// forked child whose parent lives.
    void StoreCompletedOperations();

    // Constructed in this order, destroyed in reverse.
    std::shared_ptr<IDBusProxy> proxy; ///< Null if the connection is not valid.
    std::string architecture;
    std::string veyraVersion;
    PackageList packages;
    OperationList activeOperations;
    std::vector<Operation> completedOperations;
    SubscriberList subscriptions;

private:
    template <typename Argument>
    boost::signals2::connection Connect(boost::signals2::signal<void(const Argument&)>& signal,
                                        void (DaemonConnectionPrivate::*handler)(const Argument&));
    void SubscribeToSignals();
    void LoadSnapshot();

    void OnPackageInstalled(const Package& package);
    void OnPackageUpgraded(const Package& package);
    void OnPackageRemoved(const std::string& id);
    void OnOperationStatusChanged(const Operation& operation);

    template <typename Argument>
    void Deliver(EventType type, const Argument& argument);

    bool m_stored = false;
    const pid_t m_process = ::getpid();
    const std::shared_ptr<const bool> m_alive = std::make_shared<const bool>(true);

    // Last member: the handlers are disconnected before anything that they use is destroyed.
    std::array<boost::signals2::scoped_connection, 4> m_handlers;
};

} // namespace Emporium
