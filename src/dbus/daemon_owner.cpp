// SPDX-License-Identifier: BSD-3-Clause
#include "dbus/daemon_owner.h"

#include "dbus/contract.h"

#include <sdbus-c++/Error.h>
#include <sdbus-c++/Types.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

namespace Emporium {
namespace {

constexpr const char* busName = "org.freedesktop.DBus";
constexpr const char* busPath = "/org/freedesktop/DBus";
constexpr const char* busInterface = "org.freedesktop.DBus";

/// The time-out of a request covers the time until the main loop dispatches the reply, which the
/// application may delay as long as it wants.
constexpr std::uint64_t noTimeout = std::numeric_limits<std::uint64_t>::max();

/// The time-out of requests that have none of their own, while the object lives.
class MethodCallTimeout
{
public:
    MethodCallTimeout(sdbus::IConnection& connection, std::uint64_t timeout)
        : m_connection(connection), m_former(connection.getMethodCallTimeout())
    {
        m_connection.setMethodCallTimeout(timeout);
    }
    MethodCallTimeout(const MethodCallTimeout&) = delete;
    MethodCallTimeout& operator=(const MethodCallTimeout&) = delete;
    ~MethodCallTimeout() { m_connection.setMethodCallTimeout(m_former); }

private:
    sdbus::IConnection& m_connection;
    const std::uint64_t m_former;
};

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
    } else if (!HasSent(reply)) {
        AskAgain();
    }
}

/// If the bus refuses the rule, the bus library closes the connection: without the changes no signal
/// could be trusted. It would do the same if the request expired.
void DaemonOwner::AskForChanges(sdbus::IConnection& connection)
{
    const std::string rule = std::string("type='signal',sender='") + busName + "',path='" +
                             busPath + "',interface='" + busInterface +
                             "',member='NameOwnerChanged',arg0='" + Contract::busName + "'";
    const MethodCallTimeout timeout(connection, noTimeout);
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
        std::string owner;
        if (!error) {
            reply >> owner;
        }
        OnAnswer(owner);
        m_knownIsStale = false;
        m_asked = false;
    };
    m_reply = m_bus->callMethodAsync(call, onReply, noTimeout, sdbus::return_slot);
    m_asked = true;
}

void DaemonOwner::AskAgain()
{
    // The slot of a reply must not be replaced while that reply is being processed.
    if (m_asked) {
        return;
    }
    m_knownIsStale = true;
    try {
        AskForOwner();
    } catch (const sdbus::Error&) {
        return; // The bus is lost; the next dispatch reports it.
    }
}

void DaemonOwner::OnAnswer(const std::string& owner)
{
    if (m_knownIsStale && owner != m_owner) {
        Change(m_owner, owner);
        return;
    }
    if (m_owner.empty()) {
        m_owner = owner;
    }
    m_onChange();
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
    if (m_owner.empty() || m_owner == from) {
        m_owner.clear();
        m_onChange(); // a replacement is seen as an absence too
        m_owner = to;
    } else if (m_owner != to) {
        AskAgain(); // unless it is older than the reply by which this owner is known
    }
    m_onChange();
}

} // namespace Emporium
