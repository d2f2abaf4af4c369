// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/simulated_daemon.h"

#include "simulator/bus/bus_error.h"
#include "simulator/faults/control_contract.h"
#include "simulator/print_error.h"

#include <utility>

namespace Simulator {

SimulatedDaemon::SimulatedDaemon(const Options& options, Catalogue catalogue,
                                 const std::string& busAddress,
                                 const std::function<void(int status)>& disconnected)
    : m_bus(busAddress), m_store(std::move(catalogue), options.state),
      m_operations(m_store, options.pace,
                   [this](const std::string& name, const Variant& body) { Emit(name, body); }),
      m_daemon(m_bus, m_store, m_operations, m_faults, m_progress,
               [this, disconnected] {
                   m_operations.Clear();
                   m_bus.Close();
                   disconnected(0);
               }),
      m_control(m_bus, m_store, m_operations, m_faults, m_progress)
{
    m_store.OnOperation([this](const Operation& operation) { m_progress.Record(operation); });
    m_bus.OnLost([disconnected] {
        PrintError("the bus is lost");
        disconnected(1);
    });
}

// Called from the main loop, where an exception would terminate the program.
void SimulatedDaemon::Emit(const std::string& name, const Variant& body)
{
    try {
        m_bus.Emit({.name = name}, body);
    } catch (const BusError&) {
        return; // After ExitDuring, operations continue without signals.
    }
    m_progress.Notify();
}

// Called from the main loop too.
void SimulatedDaemon::SetPresent(bool present)
{
    try {
        if (present) {
            m_bus.Own(Contract::busName);
        } else {
            m_bus.Release(Contract::busName);
        }
    } catch (const std::exception& error) {
        PrintError(error.what());
    }
}

void SimulatedDaemon::TakeNames()
{
    m_bus.Own(ControlContract::busName);
    m_bus.Own(Contract::busName);
}

} // namespace Simulator
