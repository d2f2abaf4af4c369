// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/daemon_connection.h>

#include <cstdint>
#include <memory>

namespace Emporium {

/// The process-wide connection, from the first wish for it until the process exits.
class SharedDaemonConnection
{
public:
    /// The connection, made if there was none yet. Null while the process exits, unless it is there
    /// still: nothing is made then that would have to be taken down again.
    static DaemonConnection* Get();

    /// A connection that never was one, and never becomes one.
    static DaemonConnection Invalid();

    /// Ends a subscription of this connection by its ID.
    static void Unsubscribe(const DaemonConnection& connection, std::uint64_t id);

    SharedDaemonConnection(const SharedDaemonConnection&) = delete;
    SharedDaemonConnection& operator=(const SharedDaemonConnection&) = delete;

private:
    SharedDaemonConnection() = default;
    ~SharedDaemonConnection();

    std::unique_ptr<DaemonConnection> m_connection;
};

} // namespace Emporium
