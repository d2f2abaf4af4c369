// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>

#include <cstdint>
#include <memory>

namespace Emporium {

class EventSubscriptionPrivate;

/// Keeps a subscription alive: it ends when the last copy of this handle goes, or earlier with
/// DaemonConnection::UnsubscribeFromEvent(). To drop what SubscribeToEvent() returns therefore ends
/// the subscription at once.
///
/// The end of the last copy acts on the process-wide connection, the one that
/// GetDaemonConnection() returns; a subscription of another connection is ended with
/// UnsubscribeFromEvent(). Belongs to the thread of the GLib default main context. May be a global:
/// while the process exits nothing is made anew for it.
class EMPORIUM_EXPORT EventSubscription
{
public:
    /// No subscription: the ID is 0, and nothing happens when it goes.
    EventSubscription();

    /// A subscription of the process-wide connection by its ID; it ends with this handle.
    explicit EventSubscription(std::uint64_t id);

    EventSubscription(const EventSubscription& other);
    EventSubscription(EventSubscription&& other) noexcept;
    EventSubscription& operator=(const EventSubscription& other);
    EventSubscription& operator=(EventSubscription&& other) noexcept;
    ~EventSubscription();

    /// The IDs of a connection begin with 1 and are never used again.
    std::uint64_t GetID() const;

private:
    std::shared_ptr<EventSubscriptionPrivate> m_private;
};

} // namespace Emporium
