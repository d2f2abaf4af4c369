// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "bus_object.h"
#include "faults.h"
#include "operations.h"
#include "store.h"

#include <functional>

namespace Simulator {

/// The daemon's object on the bus: answers the five methods, as far as the faults let it.
class DaemonService
{
public:
    DaemonService(Bus& bus, Store& store, OperationQueue& operations, Faults& faults,
                  std::function<void()> exit);

    /// Called at every GetAllProperties.
    void OnSnapshot(std::function<void()> function) { m_snapshotTaken = std::move(function); }

    bool HasMethod(const std::string& name) const;

private:
    void Call(const char* method, GVariant* arguments, GDBusMethodInvocation* invocation);
    ObjectPtr<GDBusMessage> Answer(const std::string& method, MethodScript& script,
                                   GDBusMessage* call);
    Variant Perform(const std::string& method, const std::string& argument);
    Variant Properties();
    void RequirePackage(const std::string& id) const;
    void EmitQueued(const std::vector<QueuedSignal>& signals);

    Bus& m_bus;
    Store& m_store;
    OperationQueue& m_operations;
    Faults& m_faults;
    std::function<void()> m_exit;
    std::function<void()> m_snapshotTaken;
    BusObject m_object;
};

} // namespace Simulator
