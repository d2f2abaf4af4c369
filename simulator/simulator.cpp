// SPDX-License-Identifier: BSD-3-Clause
#include "simulator.h"

#include "failures.h"

#include <utility>

namespace Simulator {

Simulator::Simulator(const Options& options, Catalogue catalogue, const std::string& busAddress,
                     const std::function<void(int status)>& gone)
    : m_bus(busAddress), m_store(std::move(catalogue), options.state),
      m_operations(m_store, options.pace,
                   [this](const std::string& name, const Variant& body) { Emit(name, body); }),
      m_daemon(m_bus, m_store, m_operations, m_faults,
               [this, gone] {
                   m_operations.Clear();
                   m_bus.Close();
                   gone(0);
               }),
      m_control(m_bus, m_store, m_operations, m_faults, m_daemon)
{
    m_bus.OnLost([gone] {
        g_printerr("emporium-simulator: the bus is gone\n");
        gone(1);
    });
}

// Called from the main loop, where nobody could catch.
void Simulator::Emit(const std::string& name, const Variant& body)
{
    try {
        m_bus.Emit({.name = name}, body);
    } catch (const BusError&) {
        return; // Off the bus; the operations continue unheard.
    }
}

void Simulator::TakeNames()
{
    m_bus.Own(controlName);
    m_bus.Own(daemonName);
}

} // namespace Simulator
