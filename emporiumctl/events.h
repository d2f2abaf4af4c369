// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "emporiumctl/json.h"
#include "emporiumctl/session.h"

#include <emporium/emporium.h>

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace EmporiumCtl {

/// Something that has happened: to a package, to an operation, or to the daemon.
struct Event
{
    /// The daemon is back, with its new state, or why that could not be read.
    using Appeared = std::variant<Snapshot, Failure>;

    std::string name;
    std::variant<std::monostate, Emporium::Package, Emporium::Operation, Appeared> content;

    /// The ID of the package that it is about, or null.
    const std::string* PackageID() const;
};

/// The names of all events.
inline const std::vector<std::string> eventNames{"PackageInstalled", "PackageUpgraded",
                                                 "PackageRemoved",   "OperationStatusChanged",
                                                 "DaemonVanished",   "DaemonAppeared"};

Json ToJson(const Event& event);

/// Receives all events from its construction on.
class EventStream
{
public:
    using OnEvent = std::function<void(const Event&)>;

    EventStream(Session& session, OnEvent onEvent);
    EventStream(const EventStream&) = delete;
    EventStream& operator=(const EventStream&) = delete;

    /// Until interrupted, or until `good` is false. Fails if the bus is lost.
    std::optional<Failure> Run(const std::function<bool()>& good);

private:
    void OnDaemonState(Emporium::DaemonState state);

    Session& m_session;
    const OnEvent m_onEvent;
    bool m_daemonAbsent = false;
    bool m_busLost = false;
    std::vector<Emporium::EventSubscription> m_subscriptions;
};

} // namespace EmporiumCtl
