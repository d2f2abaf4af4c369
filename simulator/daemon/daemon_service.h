// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/bus_object.h"
#include "simulator/daemon/injected_faults.h"
#include "simulator/daemon/operation_queue.h"
#include "simulator/daemon/progress.h"
#include "simulator/daemon/store.h"

#include <functional>

namespace Simulator {

/// The daemon's object on the bus. Answers the five methods, unless a fault is injected.
class DaemonService
{
public:
    DaemonService(BusConnection& bus, Store& store, OperationQueue& operations,
                  InjectedFaults& faults, Progress& progress, std::function<void()> exit);

    /// Calls the function at every GetAllProperties.
    void OnSnapshot(std::function<void()> function) { m_snapshotTaken = std::move(function); }

private:
    void Call(const char* method, GVariant* arguments, GDBusMethodInvocation* invocation);
    ObjectPtr<GDBusMessage> Answer(const std::string& method, MethodScript& script,
                                   GDBusMessage* call);
    Variant Perform(const std::string& method, const std::string& argument);
    Variant Properties();
    void RequirePackage(const std::string& id) const;
    void EmitQueued(const std::vector<QueuedSignal>& signals);

    BusConnection& m_bus;
    Store& m_store;
    OperationQueue& m_operations;
    InjectedFaults& m_faults;
    Progress& m_progress;
    std::function<void()> m_exit;
    std::function<void()> m_snapshotTaken;
    BusObject m_object;
};

} // namespace Simulator
