// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/daemon/progress.h"

#include <algorithm>
#include <utility>

namespace Simulator {

Progress::~Progress()
{
    for (const auto& client : m_clients) {
        g_bus_unwatch_name(client.second);
    }
}

void Progress::WaitFor(Condition condition, Continuation continuation)
{
    m_waiting.push_back({std::move(condition), std::move(continuation)});
}

void Progress::Notify()
{
    const auto holds = [](const Waiting& waiting) { return waiting.condition(); };
    for (;;) {
        const auto found = std::find_if(m_waiting.begin(), m_waiting.end(), holds);
        if (found == m_waiting.end()) {
            return;
        }
        // Removed before the call, which may notify again.
        const Continuation continuation = std::move(found->continuation);
        m_waiting.erase(found);
        continuation();
    }
}

void Progress::Record(const Operation& operation)
{
    LatestOperation& latest = m_operations[operation.package];
    if (latest.uuid != operation.uuid) {
        latest = {operation.uuid, {}};
    }
    latest.statuses.insert(operation.status);
}

bool Progress::HasHad(const std::string& package, std::int32_t status) const
{
    return std::any_of(m_operations.begin(), m_operations.end(), [&](const auto& entry) {
        return (package.empty() || entry.first == package) &&
               entry.second.statuses.contains(status);
    });
}

void Progress::AddClient(GDBusConnection* bus, const std::string& uniqueName)
{
    if (m_clients.contains(uniqueName)) {
        return;
    }
    m_clients[uniqueName] = g_bus_watch_name_on_connection(
        bus, uniqueName.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr, Vanished, this, nullptr);
}

void Progress::Vanished(GDBusConnection*, const char* name, gpointer data)
{
    auto& clients = static_cast<Progress*>(data)->m_clients;
    if (const auto client = clients.extract(name)) {
        g_bus_unwatch_name(client.mapped());
    }
}

} // namespace Simulator
