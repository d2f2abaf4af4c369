// SPDX-License-Identifier: BSD-3-Clause
#include "client/subscriber_list.h"

#include <algorithm>
#include <iterator>

namespace Emporium {

std::uint64_t SubscriberList::Add(EventType type, const EventCallback& callback)
{
    m_records.push_back(Record{m_lastID + 1, type, callback, false});
    return ++m_lastID;
}

void SubscriberList::Remove(std::uint64_t id)
{
    const auto record = std::find_if(m_records.begin(), m_records.end(),
                                     [id](const Record& candidate) { return candidate.id == id; });
    if (record == m_records.end()) {
        return;
    }
    record->removed = true;
    m_hasRemoved = true;
    if (m_walks == 0) {
        ClearRemoved();
    }
}

void SubscriberList::ClearRemoved()
{
    if (!m_hasRemoved) {
        return;
    }
    m_hasRemoved = false;
    // Destroying a callback may unsubscribe others, so the records are destroyed last, after the
    // list is consistent again.
    std::list<Record> removed;
    for (auto record = m_records.begin(); record != m_records.end();) {
        const auto next = std::next(record);
        if (record->removed) {
            removed.splice(removed.end(), m_records, record);
        }
        record = next;
    }
}

} // namespace Emporium
