// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/emporium_proxy.h"

#include "common/log/log_message.h"
#include "dbus/contract.h"
#include "dbus/decoder.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Message.h>
#include <sdbus-c++/Types.h>

#include <cstdint>
#include <new>
#include <optional>

namespace org::velmora {

namespace Contract = Emporium::Contract;
namespace Decoder = Emporium::Decoder;
using Common::LogLevel;
using Common::LogMessage;

namespace {

constexpr std::uint64_t defaultReplyTimeout = 0;

/// Returns the content of the signal, or nothing if it deviates from the contract. Throws
/// std::bad_alloc for a lack of memory, which the bus library may report as an error of its own.
template <typename Content>
std::optional<Content> Decode(sdbus::Signal& signal, Content (*read)(sdbus::Message&))
{
    try {
        return read(signal);
    } catch (const sdbus::Error& error) {
        if (error.getName() == "org.freedesktop.DBus.Error.NoMemory") {
            throw std::bad_alloc();
        }
        return std::nullopt;
    }
}

} // namespace

Emporium_proxy::Emporium_proxy(sdbus::IProxy& proxy)
    : m_proxy(proxy), m_interface(Contract::interfaceName)
{
}

void Emporium_proxy::registerProxy()
{
    RegisterSignal(Contract::Signal::operationStatusChanged, Decoder::ReadOperationBody,
                   &Emporium_proxy::onOperationStatusChanged);
    RegisterSignal(Contract::Signal::packageInstalled, Decoder::ReadPackageBody,
                   &Emporium_proxy::onPackageInstalled);
    RegisterSignal(Contract::Signal::packageUpgraded, Decoder::ReadPackageBody,
                   &Emporium_proxy::onPackageUpgraded);
    RegisterSignal(Contract::Signal::packageRemoved, Decoder::ReadStringBody,
                   &Emporium_proxy::onPackageRemoved);
}

template <typename Content>
void Emporium_proxy::RegisterSignal(const char* signal, Content (*read)(sdbus::Message&),
                                    void (Emporium_proxy::*handler)(const Content&))
{
    m_proxy.registerSignalHandler(m_interface, sdbus::SignalName(signal),
                                  [this, signal, read, handler](sdbus::Signal message) {
                                      if (isFromDaemon(message)) {
                                          Process(signal, message, read, handler);
                                      }
                                  });
}

template <typename Content>
void Emporium_proxy::Process(const char* signal, sdbus::Signal& message,
                             Content (*read)(sdbus::Message&),
                             void (Emporium_proxy::*handler)(const Content&))
{
    try {
        if (const auto content = Decode(message, read)) {
            (this->*handler)(*content);
        }
    } catch (const std::bad_alloc& error) {
        // From now on the snapshot may differ from the daemon's state.
        LogMessage(LogLevel::Error)
            << "Failed to process the " << signal << " signal (" << error.what() << ")";
    }
}

template <typename... Arguments>
sdbus::MethodReply Emporium_proxy::Call(const char* method, const Arguments&... arguments)
{
    sdbus::MethodCall call = m_proxy.createMethodCall(m_interface, sdbus::MethodName(method));
    ((call << arguments), ...);
    sdbus::MethodReply reply = m_proxy.callMethod(call, defaultReplyTimeout);
    onReplyFromDaemon(reply);
    return reply;
}

Emporium::Properties Emporium_proxy::CallGetAllProperties()
{
    sdbus::MethodReply reply = Call(Contract::Method::getAllProperties);
    return Decoder::ReadProperties(reply);
}

Emporium::Operation Emporium_proxy::CallInstall(const std::string& path)
{
    sdbus::MethodReply reply = Call(Contract::Method::install, path);
    return Decoder::ReadOperationBody(reply);
}

Emporium::Operation Emporium_proxy::CallRemove(const std::string& packageID)
{
    sdbus::MethodReply reply = Call(Contract::Method::remove, packageID);
    return Decoder::ReadOperationBody(reply);
}

void Emporium_proxy::CallStart(const std::string& id)
{
    Call(Contract::Method::start, id);
}

void Emporium_proxy::CallRestart(const std::string& id)
{
    Call(Contract::Method::restart, id);
}

} // namespace org::velmora
