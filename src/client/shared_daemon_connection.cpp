// SPDX-License-Identifier: BSD-3-Clause
#include "client/shared_daemon_connection.h"

#include "client/daemon_connection_private.h"
#include "client/process_exit.h"

namespace Emporium {
namespace {

// Needs no construction and no destruction, so that it can be asked at any time of a process's
// life.
enum class State
{
    Absent,
    Present,
    Gone
};
constinit State state = State::Absent;

} // namespace

DaemonConnection* SharedDaemonConnection::Get()
{
    const bool mayBeMade = state == State::Absent && !ProcessExit::HasBegun();
    if (state != State::Present && !mayBeMade) {
        return nullptr;
    }
    static SharedDaemonConnection shared;
    if (!shared.m_connection) {
        shared.m_connection = std::make_unique<DaemonConnection>();
        state = State::Present;
    }
    return shared.m_connection.get();
}

DaemonConnection SharedDaemonConnection::Invalid()
{
    return DaemonConnection(std::shared_ptr<DaemonConnectionPrivate>());
}

void SharedDaemonConnection::Unsubscribe(const DaemonConnection& connection, std::uint64_t id)
{
    connection.m_private->subscriptions.Remove(id);
}

SharedDaemonConnection::~SharedDaemonConnection()
{
    state = State::Gone;
    // Handles that never go, or that a callback on the stack holds while it calls exit(), must not
    // cost the application its completed operations.
    if (m_connection) {
        m_connection->m_private->StoreCompletedOperations();
    }
}

DaemonConnection GetDaemonConnection()
{
    const DaemonConnection* const connection = SharedDaemonConnection::Get();
    return connection != nullptr ? *connection : SharedDaemonConnection::Invalid();
}

} // namespace Emporium
