// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <sdbus-c++/IConnection.h>
#include <sdbus-c++/IProxy.h>
#include <sdbus-c++/Message.h>
#include <sdbus-c++/TypeTraits.h>

#include <functional>
#include <memory>
#include <string>

namespace Emporium {

/// The connection that owns the daemon's name on the bus: the only one whose signals count.
///
/// The bus does not apply match rules to messages that are addressed to this process, and the bus
/// library, which sees the sender's unique name only, takes it for the owner of any name. So every
/// participant of the bus can have its own signals delivered here.
///
/// Nothing here blocks. The bus replies in the order of the requests, and both are sent before the
/// first subscription to a signal; so the owner is known before the daemon's first signal is
/// dispatched, and each signal is compared with the owner at the time at which it was sent.
///
/// The bus drops messages for a process that does not read them in time, and a change of the owner can
/// be among them. A reply or a change that does not match the known owner reveals that; the bus is then
/// asked again. Its answer arrives after the changes that are still waiting to be dispatched.
class DaemonOwner
{
public:
    /// Calls `onChange` from the main loop after each message of the bus about the owner, also if the
    /// owner was known before.
    DaemonOwner(sdbus::IConnection& connection, std::function<void()> onChange);
    DaemonOwner(const DaemonOwner&) = delete;
    DaemonOwner& operator=(const DaemonOwner&) = delete;

    bool IsPresent() const { return !m_owner.empty(); }

    /// True if the owner sent this message. False as long as no owner is known.
    bool HasSent(const sdbus::Message& message) const;

    /// Takes the sender of the daemon's reply for the owner if none is known, because messages of the
    /// bus are dispatched only when the main loop iterates.
    void LearnFromReply(const sdbus::Message& reply);

private:
    void AskForChanges(sdbus::IConnection& connection);
    void AskForOwner();
    void AskAgain();
    void OnAnswer(const std::string& owner);
    void OnChange(sdbus::Message signal);
    void Change(const std::string& from, const std::string& to);

    const std::function<void()> m_onChange;
    std::string m_owner;  ///< Its unique name; empty if there is none, or none is known.
    bool m_asked = false; ///< The bus has not answered yet, or its answer is being processed.
    bool m_knownIsStale = false; ///< The answer replaces the known owner.
    std::unique_ptr<sdbus::IProxy> m_bus;
    sdbus::Slot m_changes;
    sdbus::Slot m_reply;
};

} // namespace Emporium
