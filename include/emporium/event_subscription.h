// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <common/export.h>

#include <cstdint>
#include <memory>

namespace Emporium {

class EventSubscriptionPrivate;

/// Owns a subscription: destroying the last copy of this handle unsubscribes. If the result of
/// DaemonConnection::SubscribeToEvent() is discarded, the subscription therefore ends at once.
///
/// Destruction acts on the process-wide connection, GetDaemonConnection(). End a subscription of
/// another connection with its UnsubscribeFromEvent(). For use on the thread of the GLib default main
/// context. May be a global: during process exit it creates no connection.
class EMPORIUM_EXPORT EventSubscription
{
public:
    /// Owns no subscription: the ID is 0, and destruction does nothing.
    EventSubscription();

    /// Takes ownership of the process-wide connection's subscription with this ID.
    explicit EventSubscription(std::uint64_t id);

    /// @name Copying and moving
    /// @{

    /// Copies share one subscription.
    EventSubscription(const EventSubscription& other);
    EventSubscription(EventSubscription&& other) noexcept;
    EventSubscription& operator=(const EventSubscription& other);
    EventSubscription& operator=(EventSubscription&& other) noexcept;
    ~EventSubscription();
    /// @}

    /// Unique within a connection: 1, 2, 3 and so on, never reused.
    std::uint64_t GetID() const;

private:
    std::shared_ptr<EventSubscriptionPrivate> m_private;
};

} // namespace Emporium
