// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "dbus/properties.h"

#include <sdbus-c++/IProxy.h>
#include <sdbus-c++/Message.h>
#include <sdbus-c++/Types.h>

#include <string>

namespace org::velmora {

/// The client side of the daemon's bus interface: one member for each method, one handler for each
/// signal. Decodes messages directly into the model.
class Emporium_proxy
{
public:
    Emporium_proxy(const Emporium_proxy&) = delete;
    Emporium_proxy& operator=(const Emporium_proxy&) = delete;

protected:
    explicit Emporium_proxy(sdbus::IProxy& proxy);
    ~Emporium_proxy() = default;

    /// Subscribes to the four signals. One that is not the daemon's, or whose content deviates from
    /// the contract, is ignored.
    void registerProxy();

    virtual bool isFromDaemon(const sdbus::Message& signal) const = 0;

    /// Called with each reply of the daemon before its content is checked.
    virtual void onReplyFromDaemon(const sdbus::Message& reply) = 0;

    virtual void onOperationStatusChanged(const Emporium::Operation& operation) = 0;
    virtual void onPackageInstalled(const Emporium::Package& package) = 0;
    virtual void onPackageUpgraded(const Emporium::Package& package) = 0;
    virtual void onPackageRemoved(const std::string& packageID) = 0;

    Emporium::Properties CallGetAllProperties();
    Emporium::Operation CallInstall(const std::string& path);
    Emporium::Operation CallRemove(const std::string& packageID);
    void CallStart(const std::string& id);
    void CallRestart(const std::string& id);

private:
    template <typename... Arguments>
    sdbus::MethodReply Call(const char* method, const Arguments&... arguments);

    template <typename Content>
    void RegisterSignal(const char* signal, Content (*read)(sdbus::Message&),
                        void (Emporium_proxy::*handler)(const Content&));

    template <typename Content>
    void Process(const char* signal, sdbus::Signal& message, Content (*read)(sdbus::Message&),
                 void (Emporium_proxy::*handler)(const Content&));

    sdbus::IProxy& m_proxy;
    const sdbus::InterfaceName m_interface;
};

} // namespace org::velmora
