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

/// Every peer decodes into this. The values are the library's own, so that a record needs the same
/// memory in every peer.
class Snapshot
{
public:
    std::string architecture;
    std::string veyraVersion;
    std::vector<Emporium::Package> packages;
    std::vector<Emporium::Operation> operations;
    std::vector<Emporium::Operation> completedOperations;

    /// The handles of this package, found by a linear search.
    const Emporium::Package* Find(const std::string& id) const
    {
        for (const Emporium::Package& package : packages) {
            if (package.GetID() == id) {
                return &package;
            }
        }
        return nullptr;
    }

    /// Required before the first Upgrade(). Not part of the load: a peer that only reads its list
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

/// One implementation of a client of the daemon. main() runs the same tasks with every peer.
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

    /// Loads the snapshot again, with a new call. Call Forget() first.
    virtual void Load() = 0;

    /// Frees the result of the last Load(); not timed.
    virtual void Forget() = 0;

    virtual std::size_t PackageCount() = 0;

    /// The version of an installed package, by its identifier.
    virtual std::string GetVersion(const std::string& id) = 0;

    /// Blocks until the daemon has answered.
    virtual void Start(const std::string& id) = 0;

    /// Processes what is pending, without waiting for more.
    virtual void Settle() = 0;

    /// The only subscriber: called for every upgraded package, after the snapshot is updated.
    virtual void Subscribe(PackageCallback callback) = 0;

    /// Runs the peer's event loop while `goOn` is true.
    virtual void Run(const bool& goOn) = 0;
};

/// Each program defines its own.
std::unique_ptr<Peer> MakePeer();

} // namespace Bench
