// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/faults/control.h"

#include "simulator/bus/bus_error.h"
#include "simulator/bus/message_body.h"
#include "simulator/faults/control_contract.h"
#include "simulator/faults/verb_arguments.h"
#include "simulator/introspection.h"
#include "simulator/print_error.h"
#include "simulator/trace.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>

namespace Simulator {

Control::Control(BusConnection& bus, Store& store, OperationQueue& operations,
                 InjectedFaults& faults, Progress& progress)
    : m_bus(bus), m_store(store), m_operations(operations), m_faults(faults), m_progress(progress),
      m_object(bus, ControlContract::objectPath, controlIntrospection,
               [this](const char* method, GVariant* arguments, GDBusMethodInvocation* invocation) {
                   Call(method, arguments, invocation);
               })
{
}

Control::Handler Control::HandlerOf(std::string_view verb)
{
    namespace Verb = ControlContract::Verb;
    static constexpr std::pair<std::string_view, Handler> handlers[] = {
        {Verb::failCall, &Control::FailCall},
        {Verb::delayReply, &Control::DelayReply},
        {Verb::setReply, &Control::SetReply},
        {Verb::queueSignal, &Control::QueueSignal},
        {Verb::exitDuring, &Control::ExitDuring},
        {Verb::calls, &Control::Calls},
        {Verb::dropProperty, &Control::DropProperty},
        {Verb::setProperty, &Control::SetProperty},
        {Verb::restoreProperty, &Control::RestoreProperty},
        {Verb::emitSignal, &Control::EmitSignal},
        {Verb::emitSignalFrom, &Control::EmitSignalFrom},
        {Verb::vanish, &Control::Vanish},
        {Verb::return_, &Control::Return},
        {Verb::failOperation, &Control::FailOperation},
        {Verb::addPackage, &Control::AddPackage},
        {Verb::removePackage, &Control::RemovePackage},
        {Verb::addActiveOperation, &Control::AddOperation<&Store::PutActive>},
        {Verb::addCompletedOperation, &Control::AddOperation<&Store::PutCompleted>},
        {Verb::reset, &Control::Reset},
        {Verb::startReplay, &Control::StartReplay},
    };
    constexpr std::size_t waitingVerbs = 3;
    static_assert(std::size(handlers) + waitingVerbs == std::size(ControlContract::allVerbs));
    const auto* const found =
        std::find_if(std::begin(handlers), std::end(handlers),
                     [verb](const auto& handler) { return handler.first == verb; });
    if (found == std::end(handlers)) {
        throw BusError::InvalidArguments("unknown verb " + std::string(verb));
    }
    return found->second;
}

Variant Control::Perform(const std::string& verb, GVariant* arguments)
{
    CheckArguments(verb, arguments);
    Trace::Print("verb", verb, arguments);
    return (this->*HandlerOf(verb))(arguments);
}

Progress::Condition Control::ConditionOf(const std::string& verb, GVariant* arguments)
{
    namespace Verb = ControlContract::Verb;
    CheckArguments(verb, arguments);
    const char* text = nullptr;
    if (verb == Verb::waitForCall) {
        guint32 count = 0;
        g_variant_get(arguments, "(&su)", &text, &count);
        return [this, method = std::string(text), count] {
            return m_faults.methods[method].calls >= count;
        };
    }
    if (verb == Verb::waitForStatus) {
        std::int32_t status = 0;
        g_variant_get(arguments, "(&si)", &text, &status);
        return [this, package = std::string(text), status] {
            return m_progress.HasHad(package, status);
        };
    }
    if (verb == Verb::waitForClient) {
        return [this] { return m_progress.HasClient(); };
    }
    return {};
}

void Control::Call(const char* method, GVariant* arguments, GDBusMethodInvocation* invocation)
{
    try {
        if (Progress::Condition condition = ConditionOf(method, arguments)) {
            CallWaiting(std::move(condition), invocation);
            return;
        }
        const Variant result = Perform(method, arguments);
        g_dbus_method_invocation_return_value(invocation, result.Get());
        m_progress.Notify();
    } catch (const BusError& error) {
        g_dbus_method_invocation_return_dbus_error(invocation, error.Name().c_str(), error.what());
    } catch (const std::exception& error) {
        g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.DBus.Error.Failed",
                                                   error.what());
    }
}

void Control::CallWaiting(Progress::Condition condition, GDBusMethodInvocation* invocation)
{
    if (condition()) {
        g_dbus_method_invocation_return_value(invocation, nullptr);
        return;
    }
    const std::shared_ptr<GDBusMethodInvocation> owned(invocation, g_object_unref);
    m_progress.WaitFor(std::move(condition), [owned] {
        g_object_ref(owned.get()); // The reply releases one reference.
        g_dbus_method_invocation_return_value(owned.get(), nullptr);
    });
}

Variant Control::FailCall(GVariant* arguments)
{
    const char* method = nullptr;
    const char* name = nullptr;
    const char* message = nullptr;
    unsigned nth = 0;
    g_variant_get(arguments, "(&su&s&s)", &method, &nth, &name, &message);
    MethodScript& script = ScriptOf(method);
    script.errors.insert_or_assign(script.calls + nth, ErrorOf(name, message));
    return EmptyBody();
}

Variant Control::DelayReply(GVariant* arguments)
{
    const char* method = nullptr;
    unsigned milliseconds = 0;
    g_variant_get(arguments, "(&su)", &method, &milliseconds);
    ScriptOf(method).delay = milliseconds;
    return EmptyBody();
}

Variant Control::SetReply(GVariant* arguments)
{
    const char* method = nullptr;
    const char* body = nullptr;
    g_variant_get(arguments, "(&s&s)", &method, &body);
    ScriptOf(method).replies.push_back(ParseBody(body));
    return EmptyBody();
}

Variant Control::QueueSignal(GVariant* arguments)
{
    const char* method = nullptr;
    const char* signal = nullptr;
    const char* body = nullptr;
    g_variant_get(arguments, "(&s&s&s)", &method, &signal, &body);
    ScriptOf(method).signals.push_back({signal, ParseBody(body)});
    return EmptyBody();
}

Variant Control::ExitDuring(GVariant* arguments)
{
    const char* method = nullptr;
    g_variant_get(arguments, "(&s)", &method);
    ScriptOf(method).exits = true;
    return EmptyBody();
}

Variant Control::Calls(GVariant* arguments)
{
    const char* method = nullptr;
    g_variant_get(arguments, "(&s)", &method);
    const MethodScript& script = ScriptOf(method);
    return Variant(g_variant_new("(us)", script.calls, script.lastArgument.c_str()));
}

Variant Control::DropProperty(GVariant* arguments)
{
    const char* key = nullptr;
    g_variant_get(arguments, "(&s)", &key);
    m_faults.properties[key] = {};
    return EmptyBody();
}

Variant Control::SetProperty(GVariant* arguments)
{
    const char* key = nullptr;
    GVariant* value = nullptr;
    g_variant_get(arguments, "(&sv)", &key, &value);
    m_faults.properties[key] = Variant(value);
    return EmptyBody();
}

Variant Control::RestoreProperty(GVariant* arguments)
{
    const char* key = nullptr;
    g_variant_get(arguments, "(&s)", &key);
    m_faults.properties.erase(key);
    return EmptyBody();
}

Variant Control::EmitSignal(GVariant* arguments)
{
    const char* signal = nullptr;
    const char* body = nullptr;
    unsigned count = 0;
    g_variant_get(arguments, "(&s&su)", &signal, &body, &count);
    m_bus.Emit({.name = signal}, ParseBody(body), count);
    return EmptyBody();
}

Variant Control::EmitSignalFrom(GVariant* arguments)
{
    const char* path = nullptr;
    const char* interface = nullptr;
    const char* signal = nullptr;
    const char* body = nullptr;
    unsigned count = 0;
    g_variant_get(arguments, "(&s&s&s&su)", &path, &interface, &signal, &body, &count);
    m_bus.Emit({path, interface, signal}, ParseBody(body), count);
    return EmptyBody();
}

Variant Control::Vanish(GVariant* arguments)
{
    unsigned milliseconds = 0;
    g_variant_get(arguments, "(u)", &milliseconds);
    m_bus.Release(Contract::busName);
    m_return.Stop();
    if (milliseconds != 0) {
        m_return.Start(milliseconds, [this] {
            try {
                m_bus.Own(Contract::busName);
            } catch (const std::exception& error) {
                PrintError(std::string("cannot reclaim the bus name: ") + error.what());
            }
        });
    }
    return EmptyBody();
}

Variant Control::Return(GVariant*)
{
    m_return.Stop();
    m_bus.Own(Contract::busName);
    return EmptyBody();
}

Variant Control::FailOperation(GVariant* arguments)
{
    const char* package = nullptr;
    std::int32_t error = 0;
    g_variant_get(arguments, "(&si)", &package, &error);
    m_operations.FailNext(package, error);
    return EmptyBody();
}

Variant Control::AddPackage(GVariant* arguments)
{
    GVariant* value = nullptr;
    gboolean announce = FALSE;
    g_variant_get(arguments, "(@(ssssa{sv})b)", &value, &announce);
    const Variant package(value);
    const bool upgraded = m_store.PutPackage(PackageFromVariant(package.Get()));
    if (announce != FALSE) {
        m_bus.Emit({.name = upgraded ? Contract::Signal::packageUpgraded
                                     : Contract::Signal::packageInstalled},
                   Body(package));
    }
    return EmptyBody();
}

Variant Control::RemovePackage(GVariant* arguments)
{
    const char* id = nullptr;
    gboolean announce = FALSE;
    g_variant_get(arguments, "(&sb)", &id, &announce);
    if (!m_store.RemovePackage(id)) {
        throw BusError(Common::ErrorCode::PackageNotExist);
    }
    if (announce != FALSE) {
        m_bus.Emit({.name = Contract::Signal::packageRemoved}, Body(ToVariant(std::string(id))));
    }
    return EmptyBody();
}

template <void (Store::*Put)(const Operation&)>
Variant Control::AddOperation(GVariant* arguments)
{
    GVariant* value = nullptr;
    gboolean announce = FALSE;
    g_variant_get(arguments, "(@(ssiii)b)", &value, &announce);
    const Variant operation(value);
    (m_store.*Put)(OperationFromVariant(operation.Get()));
    if (announce != FALSE) {
        m_bus.Emit({.name = Contract::Signal::operationStatusChanged}, Body(operation));
    }
    return EmptyBody();
}

Variant Control::Reset(GVariant* arguments)
{
    m_operations.Clear();
    m_store.Reset();
    m_faults = {};
    m_progress.Clear();
    return Return(arguments);
}

Variant Control::StartReplay(GVariant*)
{
    if (!m_startReplay) {
        throw BusError::InvalidArguments("there is no recording to replay");
    }
    m_startReplay();
    return EmptyBody();
}

} // namespace Simulator
