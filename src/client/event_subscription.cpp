// SPDX-License-Identifier: BSD-3-Clause
#include <emporium/event_subscription.h>

#include "client/process_exit.h"
#include "client/shared_daemon_connection.h"
#include "common/log/log_message.h"

namespace Emporium {

/// Unsubscribes on destruction if it owns a subscription.
class EventSubscriptionPrivate
{
public:
    EventSubscriptionPrivate() = default;
    explicit EventSubscriptionPrivate(std::uint64_t subscriptionID)
        : id(subscriptionID), m_hasOwner(true)
    {
        ProcessExit::Watch();
    }
    EventSubscriptionPrivate(const EventSubscriptionPrivate&) = delete;
    EventSubscriptionPrivate& operator=(const EventSubscriptionPrivate&) = delete;

    ~EventSubscriptionPrivate()
    {
        if (m_hasOwner) {
            Unsubscribe();
        }
    }

    const std::uint64_t id = 0;

private:
    void Unsubscribe() const;

    const bool m_hasOwner = false;
};

void EventSubscriptionPrivate::Unsubscribe() const
{
    DaemonConnection* const connection = SharedDaemonConnection::Get();
    if (connection == nullptr) {
        return;
    }
    if (!*connection) {
        Common::LogMessage(Common::LogLevel::Warning)
            << "Couldn't unsubscribe from event: bad emporium daemon connection "
            << "(subscription id = " << id << ")";
        return;
    }
    SharedDaemonConnection::Unsubscribe(*connection, id);
}

EventSubscription::EventSubscription() : m_private(std::make_shared<EventSubscriptionPrivate>()) {}

EventSubscription::EventSubscription(std::uint64_t id)
    : m_private(std::make_shared<EventSubscriptionPrivate>(id))
{
}

EventSubscription::EventSubscription(const EventSubscription&) = default;
EventSubscription::EventSubscription(EventSubscription&&) noexcept = default;
EventSubscription& EventSubscription::operator=(const EventSubscription&) = default;
EventSubscription& EventSubscription::operator=(EventSubscription&&) noexcept = default;
EventSubscription::~EventSubscription() = default;

std::uint64_t EventSubscription::GetID() const
{
    return m_private->id;
}

} // namespace Emporium
