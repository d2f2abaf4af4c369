// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "simulator/faults.h"
#include "simulator/glib_pointer.h"
#include "simulator/state.h"

#include <deque>
#include <map>
#include <string>
#include <vector>

namespace Simulator {

inline constexpr const char* busName = "org.velmora.Emporium";

/// How operations go: this many steps, with this much time before each of them and before the end.
struct Pace
{
    unsigned steps = 3;
    unsigned stepMilliseconds = 200;
};

/// The daemon's object on the bus: five methods, four signals, and the operations, which run one
/// after the other.
class Daemon
{
public:
    struct CallRecord
    {
        unsigned count = 0;
        std::string lastArgument;
    };

    Daemon(GDBusConnection* connection, State state, Pace pace);
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;
    ~Daemon();

    /// False if somebody else has the name.
    bool OwnName();
    void ReleaseName();

    /// Takes over a floating body.
    void Emit(const char* signal, GVariant* body);

    Faults& GetFaults() { return m_faults; }
    const CallRecord& CallsOf(const std::string& method) { return m_calls[method]; }

private:
    struct Reply
    {
        Owned<GVariant> body;
        std::optional<ErrorAnswer> error;
    };

    static void OnMethodCall(GDBusConnection* connection, const char* sender, const char* path,
                             const char* interface, const char* method, GVariant* arguments,
                             GDBusMethodInvocation* invocation, gpointer self);

    void Handle(const std::string& method, GVariant* arguments, GDBusMethodInvocation* invocation);
    Reply Answer(const std::string& method, const std::string& argument, MethodFaults& faults);
    Reply Perform(const std::string& method, const std::string& argument);
    void Send(GDBusMethodInvocation* invocation, const Reply& reply);

    GVariant* AllProperties();
    Reply Install(const std::string& path);
    Reply Remove(const std::string& packageID);
    Reply Launch(const std::string& packageID);

    /// Puts a new operation into the queue.
    Reply Queue(const PackageRecord& package, Common::OperationType type);
    void StepOperation(unsigned step);
    void FinishOperation();
    void ApplyOperation(const PackageRecord& package, Common::OperationType type);
    void ScheduleStep(unsigned step);

    struct QueuedOperation
    {
        std::string uuid;
        PackageRecord package;
        std::optional<int> error;
    };

    GDBusConnection* m_connection;
    State m_state;
    Pace m_pace;
    Faults m_faults;
    std::map<std::string, CallRecord> m_calls;
    std::deque<QueuedOperation> m_queue;
    unsigned m_registration = 0;
};

} // namespace Simulator
