// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/bus_connection.h"
#include "simulator/daemon/daemon_service.h"
#include "simulator/daemon/injected_faults.h"
#include "simulator/daemon/operation_queue.h"
#include "simulator/daemon/progress.h"
#include "simulator/daemon/store.h"
#include "simulator/faults/control.h"
#include "simulator/options.h"

#include <functional>

namespace Simulator {

/// The daemon with all its parts, on one bus.
class SimulatedDaemon
{
public:
    /// @param disconnected receives an exit status after ExitDuring, or when the bus is lost
    /// @throws std::runtime_error when the bus refuses
    SimulatedDaemon(const Options& options, Catalogue catalogue, const std::string& busAddress,
                    const std::function<void(int status)>& disconnected);

    Store& Lists() { return m_store; }
    Control& ControlInterface() { return m_control; }
    Progress& Happened() { return m_progress; }
    DaemonService& Service() { return m_daemon; }
    void Emit(const std::string& name, const Variant& body);

    void TakeNames();
    /// Claims or releases the daemon's name.
    void SetPresent(bool present);

private:
    BusConnection m_bus;
    Store m_store;
    Progress m_progress;
    InjectedFaults m_faults;
    OperationQueue m_operations;
    DaemonService m_daemon;
    Control m_control;
};

} // namespace Simulator
