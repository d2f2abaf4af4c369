// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/bus/bus_object.h"
#include "simulator/daemon/injected_faults.h"
#include "simulator/daemon/operation_queue.h"
#include "simulator/daemon/progress.h"
#include "simulator/daemon/store.h"
#include "simulator/timer.h"

#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace Simulator {

/// The control interface: verbs that make the daemon misbehave, on the bus and in scenario files.
class Control
{
public:
    Control(BusConnection& bus, Store& store, OperationQueue& operations, InjectedFaults& faults,
            Progress& progress);

    /// Calls the function for StartReplay; without one, the verb is refused.
    void OnStartReplay(std::function<void()> function) { m_startReplay = std::move(function); }

    /// Executes a verb whose arguments have the types of the introspection data.
    /// @return the body of its reply
    /// @throws BusError when an argument is invalid
    Variant Perform(const std::string& verb, GVariant* arguments);

    /// The condition that a verb waits for; none if it is not one that waits.
    /// @throws BusError when an argument is invalid
    Progress::Condition ConditionOf(const std::string& verb, GVariant* arguments);

private:
    using Handler = Variant (Control::*)(GVariant* arguments);
    static Handler HandlerOf(std::string_view verb);

    void Call(const char* method, GVariant* arguments, GDBusMethodInvocation* invocation);
    void CallWaiting(Progress::Condition condition, GDBusMethodInvocation* invocation);
    MethodScript& ScriptOf(const char* method) { return m_faults.methods[method]; }

    Variant FailCall(GVariant* arguments);
    Variant DelayReply(GVariant* arguments);
    Variant SetReply(GVariant* arguments);
    Variant QueueSignal(GVariant* arguments);
    Variant ExitDuring(GVariant* arguments);
    Variant Calls(GVariant* arguments);
    Variant DropProperty(GVariant* arguments);
    Variant SetProperty(GVariant* arguments);
    Variant RestoreProperty(GVariant* arguments);
    Variant EmitSignal(GVariant* arguments);
    Variant EmitSignalFrom(GVariant* arguments);
    Variant Vanish(GVariant* arguments);
    Variant Return(GVariant* arguments);
    Variant FailOperation(GVariant* arguments);
    Variant AddPackage(GVariant* arguments);
    Variant RemovePackage(GVariant* arguments);
    template <void (Store::*Put)(const Operation&)>
    Variant AddOperation(GVariant* arguments);
    Variant Reset(GVariant* arguments);
    Variant StartReplay(GVariant* arguments);

    BusConnection& m_bus;
    Store& m_store;
    OperationQueue& m_operations;
    InjectedFaults& m_faults;
    Progress& m_progress;
    std::function<void()> m_startReplay;
    Timer m_return;
    BusObject m_object;
};

} // namespace Simulator
