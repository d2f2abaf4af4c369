// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/bus_connection.h"
#include "simulator/bus/wire_records.h"

#include <functional>
#include <list>
#include <map>
#include <set>
#include <string>

namespace Simulator {

/// What has happened so far, and what waits for something to happen.
class Progress
{
public:
    using Condition = std::function<bool()>;
    using Continuation = std::function<void()>;

    Progress() = default;
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

    /// Calls the function once, when the condition holds after a later change.
    void WaitFor(Condition condition, Continuation continuation);
    /// Continues everything whose condition holds now.
    void Notify();

    void Record(const Operation& operation);
    /// True if the latest operation on the package (empty: any) has had the status.
    bool HasHad(const std::string& package, std::int32_t status) const;

    /// Counts the program among the clients until it leaves the bus.
    void AddClient(GDBusConnection* bus, const std::string& uniqueName);
    bool HasClient() const { return !m_clients.empty(); }

    /// Forgets the statuses of operations.
    void Clear() { m_operations.clear(); }

private:
    struct Waiting
    {
        Condition condition;
        Continuation continuation;
    };
    struct LatestOperation
    {
        std::string uuid;
        std::set<std::int32_t> statuses;
    };

    static void Vanished(GDBusConnection*, const char* name, gpointer data);

    std::list<Waiting> m_waiting;
    std::map<std::string, LatestOperation> m_operations; ///< by the package's ID
    std::map<std::string, guint> m_clients;              ///< the watch of each unique name
};

} // namespace Simulator
