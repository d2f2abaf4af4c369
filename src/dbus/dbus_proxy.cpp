// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/dbus_proxy.h"

#include "common/fs/standard_descriptors.h"
#include "common/log/log_message.h"
#include "dbus/contract.h"

#include <sdbus-c++/Error.h>

#include <exception>
#include <utility>

namespace Emporium {

using Common::LogLevel;
using Common::LogMessage;

DBusProxy::DBusProxy(Unregister unregister)
    : EventDispatcher(Connection(), [this] { ReportDaemonState(DaemonState::Disconnected); }),
      ProxyInterfaces(Connection(), sdbus::ServiceName(Contract::busName),
                      sdbus::ObjectPath(Contract::objectPath)),
      m_unregister(std::move(unregister)), m_daemonOwner(Connection(), [this] {
          ReportDaemonState(m_daemonOwner.IsPresent() ? DaemonState::Present : DaemonState::Absent);
      })
{
    RequestConnectionName();
    registerProxy();
    // The bus has answered about the daemon's owner while the other requests were waited for.
    WakeForQueuedMessages();
}

DBusProxy::~DBusProxy()
{
    try {
        m_unregister(getProxy());
    } catch (const sdbus::Error& error) {
        LogMessage(LogLevel::Warning) << error.getMessage();
        LogMessage(LogLevel::Warning)
            << "Couldn't unregister proxy for the " << Contract::interfaceName << " dbus interface";
    }
}

ErrorResult DBusProxy::CallFailed(const char* method, const std::string& reason)
{
    // After a good reply the bus library itself wakes the loop for signals that arrived while it
    // waited; after an error it does not.
    WakeForQueuedMessages();
    return ErrorResult(std::string("Couldn't call ") + Contract::interfaceName + "." + method +
                       " dbus method (" + reason + ")");
}

/// A call that returns a value. Every failure, also of decoding, is reported with its full text.
template <typename Function>
auto DBusProxy::ValueOf(const char* method, Function call) -> Result<decltype(call())>
{
    try {
        return SuccessResult<decltype(call())>(call());
    } catch (const std::exception& error) {
        return CallFailed(method, error.what());
    }
}

/// A call that returns nothing. Its error is shown to the user, so the error's name, which is meant
/// for programs, is left out.
template <typename Function>
Result<void> DBusProxy::OutcomeOf(const char* method, Function call)
{
    try {
        call();
        return SuccessResult<void>();
    } catch (const sdbus::Error& error) {
        return CallFailed(method, error.getMessage());
    }
}

Result<Properties> DBusProxy::GetAllProperties()
{
    return ValueOf(Contract::Method::getAllProperties, [&] { return CallGetAllProperties(); });
}

Result<Operation> DBusProxy::Install(const std::string& path)
{
    return ValueOf(Contract::Method::install, [&] { return CallInstall(path); });
}

Result<Operation> DBusProxy::Remove(const std::string& packageID)
{
    return ValueOf(Contract::Method::remove, [&] { return CallRemove(packageID); });
}

Result<void> DBusProxy::Start(const std::string& id)
{
    return OutcomeOf(Contract::Method::start, [&] { CallStart(id); });
}

Result<void> DBusProxy::Restart(const std::string& id)
{
    return OutcomeOf(Contract::Method::restart, [&] { CallRestart(id); });
}

bool DBusProxy::isFromDaemon(const sdbus::Message& signal) const
{
    return m_daemonOwner.HasSent(signal);
}

void DBusProxy::onReplyFromDaemon(const sdbus::Message& reply)
{
    m_daemonOwner.LearnFromReply(reply);
    CurrentDaemonState = DaemonState::Present;
}

void DBusProxy::ReportDaemonState(DaemonState state)
{
    CurrentDaemonState = state;
    DaemonStateChanged(state);
}

void DBusProxy::onOperationStatusChanged(const Operation& operation)
{
    OperationStatusChanged(operation);
}

void DBusProxy::onPackageInstalled(const Package& package)
{
    PackageInstalled(package);
}

void DBusProxy::onPackageUpgraded(const Package& package)
{
    PackageUpgraded(package);
}

void DBusProxy::onPackageRemoved(const std::string& packageID)
{
    PackageRemoved(packageID);
}

std::shared_ptr<IDBusProxy> GetDBusProxy()
{
    static std::shared_ptr<IDBusProxy> proxy;
    if (!proxy) {
        try {
            const Common::StandardDescriptorsTaken others;
            proxy = std::make_shared<DBusProxy>();
        } catch (const std::exception& error) {
            LogMessage(LogLevel::Error)
                << "Failed to create a proxy for the emporium dbus interface";
            LogMessage(LogLevel::Error) << error.what();
        }
    }
    return proxy;
}

} // namespace Emporium
