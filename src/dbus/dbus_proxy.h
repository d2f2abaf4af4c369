// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/dbus_connection.h"
#include "dbus/emporium_proxy.h"
#include "dbus/idbus_proxy.h"

#include <sdbus-c++/ProxyInterfaces.h>

#include <string>

namespace Emporium {

/// The proxy on the session bus. The order of the bases is the order of construction: the
/// connection before what processes it, both before the daemon's object, and the signals first of
/// all, so that they are still there for whatever the others do last.
class DBusProxy final : public IDBusProxy,
                        private DBusConnection::Holder,
                        private DBusConnection::EventDispatcher,
                        private sdbus::ProxyInterfaces<org::velmora::Emporium_proxy>
{
public:
    /// Throws a standard exception if the session bus cannot be reached.
    DBusProxy();
    ~DBusProxy() override;

    Result<Properties> GetAllProperties() override;
    Result<Operation> Install(const std::string& path) override;
    Result<Operation> Remove(const std::string& packageID) override;
    Result<void> Start(const std::string& id) override;
    Result<void> Restart(const std::string& id) override;

private:
    void onOperationStatusChanged(const Operation& operation) override;
    void onPackageInstalled(const Package& package) override;
    void onPackageUpgraded(const Package& package) override;
    void onPackageRemoved(const std::string& packageID) override;
};

} // namespace Emporium
