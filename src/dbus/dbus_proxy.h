// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/daemon_owner.h"
#include "dbus/dbus_connection.h"
#include "dbus/emporium_proxy.h"
#include "dbus/idbus_proxy.h"

#include <sdbus-c++/IProxy.h>
#include <sdbus-c++/ProxyInterfaces.h>

#include <functional>
#include <string>

namespace Emporium {

/// The proxy on the session bus. The bases are constructed in this order, because each needs those
/// before it: the signals, the connection, its event sources, the daemon's object.
class DBusProxy final : public IDBusProxy,
                        private DBusConnection::Holder,
                        private DBusConnection::EventDispatcher,
                        private sdbus::ProxyInterfaces<org::velmora::Emporium_proxy>
{
public:
    /// Drops the signal subscriptions of the bus library's object.
    using Unregister = std::function<void(sdbus::IProxy&)>;

    /// Throws a standard exception if the session bus cannot be reached. Tests pass an `unregister`
    /// that fails: the bus library's own cannot be made to.
    explicit DBusProxy(Unregister unregister = &sdbus::IProxy::unregister);
    ~DBusProxy() override;

    Result<Properties> GetAllProperties() override;
    Result<Operation> Install(const std::string& path) override;
    Result<Operation> Remove(const std::string& packageID) override;
    Result<void> Start(const std::string& id) override;
    Result<void> Restart(const std::string& id) override;

private:
    template <typename Function>
    auto ValueOf(const char* method, Function call) -> Result<decltype(call())>;
    template <typename Function>
    Result<void> OutcomeOf(const char* method, Function call);
    void ReportDaemonState(DaemonState state);
    ErrorResult CallFailed(const char* method, const std::string& reason);

    bool isFromDaemon(const sdbus::Message& signal) const override;
    void onReplyFromDaemon(const sdbus::Message& reply) override;
    void onOperationStatusChanged(const Operation& operation) override;
    void onPackageInstalled(const Package& package) override;
    void onPackageUpgraded(const Package& package) override;
    void onPackageRemoved(const std::string& packageID) override;

    const Unregister m_unregister;
    DaemonOwner m_daemonOwner;
};

} // namespace Emporium
