// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "bus_object.h"
#include "daemon_service.h"
#include "faults.h"
#include "operations.h"
#include "store.h"

#include <functional>
#include <map>
#include <string>

namespace Simulator {

/// The verbs that make the daemon misbehave, on the bus and for scenario files.
class Control
{
public:
    Control(Bus& bus, Store& store, OperationQueue& operations, Faults& faults,
            const DaemonService& daemon);

    /// Carries out a verb whose arguments have the types of the introspection data.
    /// @return the body of its reply
    /// @throws BusError when an argument makes no sense
    Variant Perform(const std::string& verb, GVariant* arguments);

private:
    using Verb = Variant (Control::*)(GVariant* arguments);
    static const std::map<std::string, Verb>& Verbs();

    void Call(const char* method, GVariant* arguments, GDBusMethodInvocation* invocation);
    MethodScript& ScriptOf(const char* method);

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
    Variant AddActiveOperation(GVariant* arguments);
    Variant AddCompletedOperation(GVariant* arguments);
    Variant Reset(GVariant* arguments);

    Bus& m_bus;
    Store& m_store;
    OperationQueue& m_operations;
    Faults& m_faults;
    const DaemonService& m_daemon;
    Timer m_return;
    BusObject m_object;
};

} // namespace Simulator
