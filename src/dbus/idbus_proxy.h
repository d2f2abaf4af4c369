// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/properties.h"

#include <emporium/daemon_watch.h>
#include <emporium/operation.h>
#include <emporium/package.h>
#include <emporium/result.h>

#include <boost/signals2/signal.hpp>

#include <memory>
#include <string>

namespace Emporium {

/// The seam between the client and the bus: the client uses this interface and nothing else of the
/// bus, so tests replace it.
///
/// The operations block until the daemon has answered. A failure of the bus or the daemon comes
/// back as an error result. The signals are emitted on the thread that iterates the GLib default
/// main context, once for each signal of the daemon and in the order of arrival.
class IDBusProxy
{
public:
    IDBusProxy() = default;
    IDBusProxy(const IDBusProxy&) = delete;
    IDBusProxy& operator=(const IDBusProxy&) = delete;
    virtual ~IDBusProxy() = default;

    virtual Result<Properties> GetAllProperties() = 0;

    /// Queues the installation or upgrade of a package file.
    virtual Result<Operation> Install(const std::string& path) = 0;
    virtual Result<Operation> Remove(const std::string& packageID) = 0;
    virtual Result<void> Start(const std::string& id) = 0;
    virtual Result<void> Restart(const std::string& id) = 0;

    boost::signals2::signal<void(const Package&)> PackageInstalled;
    boost::signals2::signal<void(const Package&)> PackageUpgraded;
    /// Carries the identifier of the removed package.
    boost::signals2::signal<void(const std::string&)> PackageRemoved;
    boost::signals2::signal<void(const Operation&)> OperationStatusChanged;

    /// Emitted when the daemon appears or vanishes and when the bus is lost, in order with the other
    /// signals. The same state may be emitted again.
    boost::signals2::signal<void(DaemonState)> DaemonStateChanged;
    /// What is known now; can be ahead of the signal.
    DaemonState CurrentDaemonState = DaemonState::Absent;
};

/// The proxy of the process, created on first use. Null if that fails; the cause is logged, and the
/// next call tries again.
std::shared_ptr<IDBusProxy> GetDBusProxy();

} // namespace Emporium
