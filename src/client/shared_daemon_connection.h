// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <emporium/daemon_connection.h>

#include <cstdint>
#include <memory>

namespace Emporium {

/// The process-wide connection. Created on first use; lives until process exit.
class SharedDaemonConnection
{
public:
    /// Creates the connection on first use. During process exit, returns the existing connection
    /// or null; never creates one.
    static DaemonConnection* Get();

    /// A connection that is not valid and never becomes valid.
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
