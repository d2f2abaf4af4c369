// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/mem_fun.hpp>
#include <boost/multi_index/sequenced_index.hpp>
#include <boost/multi_index_container.hpp>

#include <algorithm>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace Emporium {

/// An ordered list of handles with an index by their key: each step on one entry takes the same
/// time however long the list is. Keys may repeat; the first entry of a key, in the order of the
/// list, is the one that counts. A change that throws leaves the list as it was.
template <typename T, const std::string& (T::*Key)() const>
class KeyedList
{
public:
    void Assign(const std::vector<T>& items)
    {
        Entries entries;
        entries.template get<ByKey>().reserve(items.size()); // one table, not one for each growth
        entries.insert(entries.end(), items.begin(), items.end());
        m_entries.swap(entries);
    }

    /// The first entry with this key, or null. Valid until the entry is erased.
    const T* Find(std::string_view key) const
    {
        const auto entry = First(key);
        return entry != m_entries.end() ? &*entry : nullptr;
    }

    /// Replaces the first entry that has the key of `item`. False if there is none.
    bool Overwrite(const T& item)
    {
        const auto entry = First((item.*Key)());
        return entry != m_entries.end() && m_entries.replace(entry, item);
    }

    void Append(const T& item) { m_entries.push_back(item); }

    /// Erases the first entry with this key. False if there is none.
    bool Erase(std::string_view key)
    {
        const auto entry = First(key);
        if (entry == m_entries.end()) {
            return false;
        }
        m_entries.erase(entry);
        return true;
    }

    std::vector<T> ToVector() const { return {m_entries.begin(), m_entries.end()}; }

    auto begin() const { return m_entries.begin(); }
    auto end() const { return m_entries.end(); }

private:
    struct ByKey;
    using GetKey = boost::multi_index::const_mem_fun<T, const std::string&, Key>;
    using Entries = boost::multi_index_container<
        T, boost::multi_index::indexed_by<boost::multi_index::sequenced<>,
                                          boost::multi_index::hashed_non_unique<
                                              boost::multi_index::tag<ByKey>, GetKey,
                                              std::hash<std::string_view>, std::equal_to<>>>>;

    auto First(std::string_view key) const
    {
        const auto [found, end] = m_entries.template get<ByKey>().equal_range(key);
        if (found == end || std::next(found) == end) {
            return m_entries.template project<0>(found);
        }
        // The index promises no order among entries of the same key.
        return std::find_if(m_entries.begin(), m_entries.end(),
                            [key](const T& item) { return (item.*Key)() == key; });
    }

    Entries m_entries;
};

} // namespace Emporium
