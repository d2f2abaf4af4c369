// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "bus.h"
#include "control.h"
#include "daemon_service.h"
#include "faults.h"
#include "operations.h"
#include "options.h"
#include "store.h"

#include <functional>

namespace Simulator {

/// The daemon with all its parts, on one bus.
class Simulator
{
public:
    /// @param gone called when the simulator has left the bus by itself
    /// @throws std::runtime_error when the bus refuses
    Simulator(const Options& options, Catalogue catalogue, const std::string& busAddress,
              const std::function<void(int status)>& gone);

    Store& Lists() { return m_store; }
    Control& Verbs() { return m_control; }
    DaemonService& Daemon() { return m_daemon; }
    void Emit(const std::string& name, const Variant& body);

    void TakeNames();

private:
    Bus m_bus;
    Store m_store;
    Faults m_faults;
    OperationQueue m_operations;
    DaemonService m_daemon;
    Control m_control;
};

} // namespace Simulator
