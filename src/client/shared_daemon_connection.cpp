// SPDX-License-Identifier: BSD-3-Clause
#include "client/shared_daemon_connection.h"

#include "client/daemon_connection_private.h"
#include "client/process_exit.h"

namespace Emporium {
namespace {

// Constant-initialised and trivially destructible: safe to read during static destruction.
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
    // Handles may outlive this object: leaked ones, or those of a callback that calls exit(). The
    // completed operations are stored nevertheless.
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
