// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/operation.h>
#include <emporium/package.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace Bench {

/// What every peer decodes into. The values are the library's own, so that a record costs the same
/// memory everywhere.
class Snapshot
{
public:
    std::string architecture;
    std::string veyraVersion;
    std::vector<Emporium::Package> packages;
    std::vector<Emporium::Operation> operations;
    std::vector<Emporium::Operation> completedOperations;

    /// The handles of this package, found by a walk over the list.
    const Emporium::Package* Find(const std::string& id) const
    {
        for (const Emporium::Package& package : packages) {
            if (package.GetID() == id) {
                return &package;
            }
        }
        return nullptr;
    }

    /// Needed before the first Upgrade(). Not part of the load: a peer that only looks at its list
    /// needs no index.
    void MakeIndex()
    {
        m_index.clear();
        m_index.reserve(packages.size());
        for (std::size_t position = 0; position < packages.size(); ++position) {
            m_index.emplace(packages[position].GetID(), position);
        }
    }

    void Upgrade(Emporium::Package package)
    {
        const auto found = m_index.find(package.GetID());
        if (found != m_index.end()) {
            packages[found->second] = std::move(package);
        } else {
            m_index.emplace(package.GetID(), packages.size());
            packages.push_back(std::move(package));
        }
    }

private:
    std::unordered_map<std::string, std::size_t> m_index;
};

/// One way of being a client of the daemon. main() of every peer drives it through the same tasks.
class Peer
{
public:
    using PackageCallback = std::function<void(const Emporium::Package&)>;

    Peer() = default;
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    virtual ~Peer() = default;

    /// Connects, subscribes to the four signals and loads the snapshot.
    virtual void Open() = 0;

    /// Loads the snapshot once more, from a call of its own, when the last one is forgotten.
    virtual void Load() = 0;

    /// Frees the result of the last Load(); not timed.
    virtual void Forget() = 0;

    virtual std::size_t PackageCount() = 0;

    /// The version of an installed package, by its identifier.
    virtual std::string GetVersion(const std::string& id) = 0;

    /// Blocks until the daemon has answered.
    virtual void Start(const std::string& id) = 0;

    /// Does what is waiting already, and does not wait for more.
    virtual void Settle() = 0;

    /// The one subscriber: called for every package that was upgraded, after the snapshot knows.
    virtual void Subscribe(PackageCallback callback) = 0;

    /// Does what an event-driven program does while `goOn` is true.
    virtual void Run(const bool& goOn) = 0;
};

/// Each program defines its own.
std::unique_ptr<Peer> MakePeer();

} // namespace Bench
