// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/daemon.h"

#include <functional>
#include <map>
#include <string>

namespace Simulator {

/// The object by which the simulator is told what to do wrong.
class Control
{
public:
    Control(GDBusConnection* connection, Daemon& daemon);
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;
    ~Control();

private:
    /// The reply's body, floating, or null for an empty one. Throws std::invalid_argument.
    using Verb = GVariant* (Control::*)(GVariant* arguments);

    static void OnMethodCall(GDBusConnection* connection, const char* sender, const char* path,
                             const char* interface, const char* method, GVariant* arguments,
                             GDBusMethodInvocation* invocation, gpointer self);

    MethodFaults& FaultsOf(const char* method);

    GVariant* FailCall(GVariant* arguments);
    GVariant* AnswerCall(GVariant* arguments);
    GVariant* DelayCall(GVariant* arguments);
    GVariant* SignalBeforeReply(GVariant* arguments);
    GVariant* ExitInCall(GVariant* arguments);
    GVariant* Calls(GVariant* arguments);
    GVariant* Emit(GVariant* arguments);
    GVariant* OverrideProperty(GVariant* arguments);
    GVariant* DropProperty(GVariant* arguments);
    GVariant* FailOperation(GVariant* arguments);
    GVariant* Vanish(GVariant* arguments);
    GVariant* Return(GVariant* arguments);
    GVariant* Reset(GVariant* arguments);

    static const std::map<std::string, Verb> verbs;

    GDBusConnection* m_connection;
    Daemon& m_daemon;
    unsigned m_registration = 0;
};

} // namespace Simulator
