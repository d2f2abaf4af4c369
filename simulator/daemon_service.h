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
    void OnSnapshot(std::function<void()> function) { snapshotTaken_ = std::move(function); }

    bool HasMethod(const std::string& name) const;

private:
    void Call(const char* method, GVariant* arguments, GDBusMethodInvocation* invocation);
    ObjectPtr<GDBusMessage> Answer(const std::string& method, MethodScript& script,
                                   GDBusMessage* call);
    Variant Perform(const std::string& method, const std::string& argument);
    Variant Properties();
    void RequirePackage(const std::string& id) const;
    void EmitQueued(const std::vector<QueuedSignal>& signals);

    Bus& bus_;
    Store& store_;
    OperationQueue& operations_;
    Faults& faults_;
    std::function<void()> exit_;
    std::function<void()> snapshotTaken_;
    BusObject object_;
};

} // namespace Simulator
