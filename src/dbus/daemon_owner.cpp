// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/daemon_owner.h"

#include "dbus/contract.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Types.h>

#include <optional>
#include <string_view>
#include <utility>

namespace Emporium {
namespace {

constexpr const char* busName = "org.freedesktop.DBus";
constexpr const char* busPath = "/org/freedesktop/DBus";
constexpr const char* busInterface = "org.freedesktop.DBus";

std::string_view SenderOf(const sdbus::Message& message)
{
    const char* const sender = message.getSender();
    return sender != nullptr ? sender : "";
}

} // namespace

DaemonOwner::DaemonOwner(sdbus::IConnection& connection, std::function<void()> onChange)
    : m_onChange(std::move(onChange)),
      m_bus(sdbus::createProxy(connection, sdbus::ServiceName(busName), sdbus::ObjectPath(busPath)))
{
    AskForChanges(connection);
    AskForOwner();
}

bool DaemonOwner::HasSent(const sdbus::Message& message) const
{
    return !m_owner.empty() && SenderOf(message) == m_owner;
}

void DaemonOwner::LearnFromReply(const sdbus::Message& reply)
{
    if (m_owner.empty()) {
        m_owner = SenderOf(reply);
    }
}

/// If the bus refuses the rule, the bus library closes the connection: without the changes no signal
/// could be trusted.
void DaemonOwner::AskForChanges(sdbus::IConnection& connection)
{
    const std::string rule = std::string("type='signal',sender='") + busName + "',path='" +
                             busPath + "',interface='" + busInterface +
                             "',member='NameOwnerChanged',arg0='" + Contract::busName + "'";
    m_changes = connection.addMatchAsync(
        rule, [this](sdbus::Message signal) { OnChange(std::move(signal)); }, {},
        sdbus::return_slot);
}

void DaemonOwner::AskForOwner()
{
    sdbus::MethodCall call = m_bus->createMethodCall(sdbus::InterfaceName(busInterface),
                                                     sdbus::MethodName("GetNameOwner"));
    call << Contract::busName;
    const auto onReply = [this](sdbus::MethodReply reply,
                                const std::optional<sdbus::Error>& error) {
        if (!error && m_owner.empty()) {
            reply >> m_owner;
        }
        m_onChange();
    };
    m_reply = m_bus->callMethodAsync(call, onReply, sdbus::return_slot);
}

void DaemonOwner::OnChange(sdbus::Message signal)
{
    // The rule filters what the bus broadcasts, not what a participant addresses to this process.
    if (SenderOf(signal) != busName) {
        return;
    }
    std::string name;
    std::string from;
    std::string to;
    signal >> name >> from >> to;
    Change(from, to);
}

void DaemonOwner::Change(const std::string& from, const std::string& to)
{
    // A change from another owner is older than the reply by which this one is known.
    if (m_owner.empty() || m_owner == from) {
        m_owner.clear();
        m_onChange(); // a replacement is seen as an absence too
        m_owner = to;
    }
    m_onChange();
}

} // namespace Emporium
