// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/daemon_connection.h>

#include <cstdint>
#include <list>
#include <variant>

namespace Emporium {

/// The subscribers of a connection, in the order of subscription.
///
/// Callbacks subscribe and unsubscribe, so the list changes during a walk. A removed record is no
/// longer called, but is kept until the walk ends: its callback may be the one that is running.
/// Records added during a walk have higher IDs and are skipped.
class SubscriberList
{
public:
    SubscriberList() = default;
    SubscriberList(const SubscriberList&) = delete;
    SubscriberList& operator=(const SubscriberList&) = delete;

    /// Returns the ID of the new record: 1, 2, 3 and so on, never reused.
    std::uint64_t Add(EventType type, const EventCallback& callback);

    void Remove(std::uint64_t id);

    /// Calls every subscriber of this type whose callback takes an Argument, while `goOn()` is
    /// true. An exception from a callback ends the delivery.
    template <typename Argument, typename GoOn>
    void Deliver(EventType type, const Argument& argument, GoOn goOn)
    {
        const Walk walk(*this);
        const std::uint64_t newest = m_lastID;
        for (const Record& record : m_records) {
            if (record.id > newest || !goOn()) {
                return;
            }
            if (record.removed || record.type != type) {
                continue;
            }
            using Form = std::function<void(const Argument&)>;
            if (const Form* const callback = std::get_if<Form>(&record.callback)) {
                (*callback)(argument);
            }
        }
    }

    /// The number of deliveries in progress, one nested in the other.
    int Deliveries() const { return m_walks; }

private:
    struct Record
    {
        std::uint64_t id;
        EventType type;
        EventCallback callback;
        bool removed;
    };

    /// Marks a walk in progress. The end of the outermost one clears the removed records.
    class Walk
    {
    public:
        explicit Walk(SubscriberList& list) : m_list(list) { ++m_list.m_walks; }
        Walk(const Walk&) = delete;
        Walk& operator=(const Walk&) = delete;
        ~Walk()
        {
            if (--m_list.m_walks == 0) {
                m_list.ClearRemoved();
            }
        }

    private:
        SubscriberList& m_list;
    };

    void ClearRemoved();

    std::list<Record> m_records;
    std::uint64_t m_lastID = 0;
    int m_walks = 0;
    bool m_hasRemoved = false;
};

} // namespace Emporium
