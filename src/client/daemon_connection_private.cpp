// SPDX-License-Identifier: BSD-3-Clause
#include "client/daemon_connection_private.h"

#include "client/completed_operations_cache.h"
#include "client/process_exit.h"
#include "common/log/log_message.h"

#include <unistd.h>
#include <utility>

namespace Emporium {

using Common::LogLevel;
using Common::LogMessage;

DaemonConnectionPrivate::DaemonConnectionPrivate() : proxy(GetDBusProxy())
{
    ProcessExit::Watch();
    if (proxy) {
        // Handlers first: no signal may be missed between the load and the subscription.
        SubscribeToSignals();
        LoadSnapshot();
    }
}

DaemonConnectionPrivate::~DaemonConnectionPrivate()
{
    StoreCompletedOperations();
}

void DaemonConnectionPrivate::StoreCompletedOperations()
{
    // A forked child that exits has the same operations as its parent, which stores them. The child of
    // daemon() has lost that parent.
    const bool isChild = ::getppid() == m_process;
    if (!std::exchange(m_stored, true) && !isChild) {
        CompletedOperationsCache::Write(completedOperations);
    }
}

/// The handler checks that this object is alive: if connect() throws, it may stay connected.
template <typename Argument>
boost::signals2::connection
DaemonConnectionPrivate::Connect(boost::signals2::signal<void(const Argument&)>& signal,
                                 void (DaemonConnectionPrivate::*handler)(const Argument&))
{
    const std::weak_ptr<const bool> alive = m_alive;
    return signal.connect([this, alive, handler](const Argument& argument) {
        if (!alive.expired()) {
            (this->*handler)(argument);
        }
    });
}

void DaemonConnectionPrivate::SubscribeToSignals()
{
    // Assigned one by one: if a later element of an initialiser list throws, some compilers do not
    // destroy the earlier ones.
    m_handlers[0] = Connect(proxy->PackageInstalled, &DaemonConnectionPrivate::OnPackageInstalled);
    m_handlers[1] = Connect(proxy->PackageUpgraded, &DaemonConnectionPrivate::OnPackageUpgraded);
    m_handlers[2] = Connect(proxy->PackageRemoved, &DaemonConnectionPrivate::OnPackageRemoved);
    m_handlers[3] =
        Connect(proxy->OperationStatusChanged, &DaemonConnectionPrivate::OnOperationStatusChanged);
}

void DaemonConnectionPrivate::LoadSnapshot()
{
    const Result<Properties> result = proxy->GetAllProperties();
    if (!result) {
        LogMessage(LogLevel::Error) << result.GetError();
        return;
    }
    const Properties& properties = result.Get();
    architecture = properties.Architecture;
    veyraVersion = properties.VeyraVersion;
    packages.Assign(properties.Packages);
    activeOperations.Assign(properties.Operations);
    completedOperations = CompletedOperationsCache::ReadAndRemove();
    try {
        completedOperations.insert(completedOperations.end(),
                                   properties.CompletedOperations.begin(),
                                   properties.CompletedOperations.end());
    } catch (...) {
        StoreCompletedOperations(); // their files are removed, so no other copy exists
        throw;
    }
}

void DaemonConnectionPrivate::OnPackageInstalled(const Package& package)
{
    if (packages.Overwrite(package)) {
        LogMessage(LogLevel::Warning)
            << "Just installed package is already in the list of installed packages";
    } else {
        packages.Append(package);
    }
    Deliver(EventType::PackageInstalled, package);
}

void DaemonConnectionPrivate::OnPackageUpgraded(const Package& package)
{
    if (!packages.Overwrite(package)) {
        LogMessage(LogLevel::Warning)
            << "Just upgraded package is not in the list of installed packages";
        packages.Append(package);
    }
    Deliver(EventType::PackageUpgraded, package);
}

void DaemonConnectionPrivate::OnPackageRemoved(const std::string& id)
{
    const Package* const found = packages.Find(id);
    if (found == nullptr) {
        LogMessage(LogLevel::Warning)
            << "The just removed package is not in the list of installed packages";
        return;
    }
    const Package package = *found;
    packages.Erase(id);
    Deliver(EventType::PackageRemoved, package);
}

void DaemonConnectionPrivate::OnOperationStatusChanged(const Operation& operation)
{
    const bool known = IsFinished(operation.GetStatus())
                           ? activeOperations.Erase(operation.GetUUID())
                           : activeOperations.Overwrite(operation);
    if (!known) {
        LogMessage(LogLevel::Warning)
            << "The just changed operation is not in the list of active operations";
        activeOperations.Append(operation);
    }
    Deliver(EventType::OperationStatusChanged, operation);
}

template <typename Argument>
void DaemonConnectionPrivate::Deliver(EventType type, const Argument& argument)
{
    // A callback may destroy the last handle of this connection. The object then lives until the
    // delivery ends, but no further subscriber is called. Deliveries nest when a callback runs a
    // main loop; each of them holds one reference.
    const std::shared_ptr<DaemonConnectionPrivate> self = weak_from_this().lock();
    subscriptions.Deliver(type, argument, [&] {
        return self == nullptr || self.use_count() > subscriptions.Deliveries();
    });
}

} // namespace Emporium
