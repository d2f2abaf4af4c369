// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Emporium {

/// An ordered list of handles with an index by their key, so that finding, overwriting, appending
/// and erasing cost the same however long the list is.
///
/// Keys need not be unique: the first entry of a key, in the order of the list, is the one that is
/// found. An erased entry leaves a gap in the storage; the gaps are closed when they are as many as
/// the entries, which keeps both the order and the average cost. The index is a table with open
/// addressing beside the storage: no allocation for an entry, and it refers to entries by position,
/// so that overwriting one with another of the same key leaves it alone.
template <typename T, const std::string& (T::*Key)() const>
class KeyedList
{
public:
    KeyedList() = default;

    void Assign(std::vector<T> items)
    {
        m_items = std::move(items);
        m_links.assign(m_items.size(), Link{});
        m_gaps = 0;
        RebuildIndex();
    }

    std::size_t Size() const { return m_items.size() - m_gaps; }

    /// The first entry with this key, or null. Valid until the list changes.
    const T* Find(std::string_view key) const
    {
        const Bucket* const bucket = FindBucket(key, Hash(key));
        return bucket != nullptr ? &m_items[bucket->first] : nullptr;
    }

    /// Puts `item` in the place of the first entry with its key. False if there is none.
    bool Overwrite(const T& item)
    {
        const std::string& key = (item.*Key)();
        const Bucket* const bucket = FindBucket(key, Hash(key));
        if (bucket == nullptr) {
            return false;
        }
        m_items[bucket->first] = item;
        return true;
    }

    void Append(T item)
    {
        GrowIndexFor(m_items.size() + 1);
        m_items.push_back(std::move(item));
        m_links.push_back(Link{});
        IndexLast();
    }

    /// Takes out the first entry with this key. False if there is none.
    bool Erase(std::string_view key)
    {
        Bucket* const bucket = FindBucket(key, Hash(key));
        if (bucket == nullptr) {
            return false;
        }
        const Position position = bucket->first;
        const Position next = m_links[position].next;
        if (next == none) {
            EraseBucket(static_cast<std::size_t>(bucket - m_buckets.data()));
        } else {
            bucket->first = next;
            m_links[next].last = m_links[position].last;
        }
        // Not to be touched before the index has let go: `key` may live in this very entry.
        const T erased = std::move(m_items[position]);
        m_links[position].next = gap;
        ++m_gaps;
        CloseGapsIfMany();
        return true;
    }

    std::vector<T> ToVector() const
    {
        if (m_gaps == 0) {
            return m_items;
        }
        std::vector<T> items;
        items.reserve(Size());
        ForEach([&](const T& item) { items.push_back(item); });
        return items;
    }

    template <typename Visitor>
    void ForEach(Visitor visit) const
    {
        for (std::size_t position = 0; position < m_items.size(); ++position) {
            if (m_links[position].next != gap) {
                visit(m_items[position]);
            }
        }
    }

private:
    using Position = std::uint32_t;
    static constexpr Position none = std::numeric_limits<Position>::max();
    static constexpr Position gap = none - 1;
    static constexpr std::size_t fewGaps = 32;

    /// The first entry of a key.
    struct Bucket
    {
        Position first = none;
        std::uint32_t hash = 0;
    };

    /// Leads from an entry to the next one of the same key; the first also knows the last.
    struct Link
    {
        Position next = none;
        Position last = none;
    };

    static std::uint32_t Hash(std::string_view key)
    {
        const std::size_t hash = std::hash<std::string_view>()(key);
        return static_cast<std::uint32_t>(hash ^ (hash >> 16));
    }

    std::size_t Mask() const { return m_buckets.size() - 1; }

    /// Where the key is, or would be put.
    std::size_t Probe(std::string_view key, std::uint32_t hash) const
    {
        std::size_t index = hash & Mask();
        while (
            m_buckets[index].first != none &&
            !(m_buckets[index].hash == hash && (m_items[m_buckets[index].first].*Key)() == key)) {
            index = (index + 1) & Mask();
        }
        return index;
    }

    const Bucket* FindBucket(std::string_view key, std::uint32_t hash) const
    {
        if (m_buckets.empty()) {
            return nullptr;
        }
        const Bucket& bucket = m_buckets[Probe(key, hash)];
        return bucket.first != none ? &bucket : nullptr;
    }

    Bucket* FindBucket(std::string_view key, std::uint32_t hash)
    {
        return const_cast<Bucket*>(std::as_const(*this).FindBucket(key, hash));
    }

    /// Puts the last item into the index.
    void IndexLast() { Index(static_cast<Position>(m_items.size() - 1)); }

    void Index(Position position)
    {
        const std::string& key = (m_items[position].*Key)();
        const std::uint32_t hash = Hash(key);
        Bucket& bucket = m_buckets[Probe(key, hash)];
        if (bucket.first == none) {
            bucket = Bucket{position, hash};
            m_links[position].last = position;
        } else {
            Position& last = m_links[bucket.first].last;
            m_links[last].next = position;
            last = position;
        }
    }

    /// Moves up the buckets behind this one that would not be found any more if it were empty.
    void EraseBucket(std::size_t hole)
    {
        for (std::size_t index = (hole + 1) & Mask(); m_buckets[index].first != none;
             index = (index + 1) & Mask()) {
            const std::size_t home = m_buckets[index].hash & Mask();
            if (((index - home) & Mask()) >= ((index - hole) & Mask())) {
                m_buckets[hole] = m_buckets[index];
                hole = index;
            }
        }
        m_buckets[hole] = Bucket{};
    }

    void CloseGapsIfMany()
    {
        if (m_gaps < fewGaps || m_gaps < Size()) {
            return;
        }
        Assign(ToVector());
    }

    /// At most three quarters full with so many entries.
    static std::size_t BucketsFor(std::size_t count)
    {
        return count == 0 ? 0 : std::bit_ceil(count + count / 3 + 1);
    }

    void GrowIndexFor(std::size_t count)
    {
        if (BucketsFor(count) > m_buckets.size()) {
            RebuildIndex(count);
        }
    }

    void RebuildIndex() { RebuildIndex(m_items.size()); }

    /// The links stay: they lead through the entries of a key in the order of the list, as before.
    void RebuildIndex(std::size_t count)
    {
        m_buckets.assign(BucketsFor(count), Bucket{});
        for (std::size_t position = 0; position < m_items.size(); ++position) {
            if (m_links[position].next != gap) {
                Index(static_cast<Position>(position));
            }
        }
    }

    std::vector<T> m_items;
    std::vector<Link> m_links;
    std::vector<Bucket> m_buckets;
    std::size_t m_gaps = 0;
};

} // namespace Emporium
