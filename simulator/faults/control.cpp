// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/faults/control.h"

#include "simulator/bus/bus_error.h"
#include "simulator/bus/message_body.h"
#include "simulator/faults/control_contract.h"
#include "simulator/introspection.h"
#include "simulator/print_error.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace Simulator {

namespace {

Variant BodyOf(const char* text)
{
    try {
        return ParseBody(text);
    } catch (const std::invalid_argument& error) {
        throw BusError::InvalidArguments(error.what());
    }
}

void RequireSignalName(const char* name)
{
    if (g_dbus_is_member_name(name) == FALSE) {
        throw BusError::InvalidArguments(std::string("not a signal: ") + name);
    }
}

const Common::ErrorTableRow& RowOfShortName(const std::string& name)
{
    const auto* const row =
        std::find_if(Common::errorTable.begin(), Common::errorTable.end(),
                     [&name](const auto& candidate) { return candidate.ShortName() == name; });
    if (row == Common::errorTable.end()) {
        throw BusError::InvalidArguments("no such error: " + name);
    }
    return *row;
}

// A name without dots is the short name of an error of the error model.
BusError ErrorOf(const std::string& name, const std::string& message)
{
    const bool isShort = name.find('.') == std::string::npos;
    const auto& row = isShort ? RowOfShortName(name) : Common::FindError(name);
    const std::string whole = isShort ? std::string(row.dbusName) : name;
    if (g_dbus_is_interface_name(whole.c_str()) == FALSE) {
        throw BusError::InvalidArguments("not an error name: " + name);
    }
    return {whole, message.empty() ? std::string(row.message) : message};
}

} // namespace

Control::Control(BusConnection& bus, Store& store, OperationQueue& operations,
                 InjectedFaults& faults, const DaemonService& daemon)
    : m_bus(bus), m_store(store), m_operations(operations), m_faults(faults), m_daemon(daemon),
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
    };
    static_assert(std::size(handlers) == std::size(ControlContract::allVerbs));
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
    return (this->*HandlerOf(verb))(arguments);
}

void Control::Call(const char* method, GVariant* arguments, GDBusMethodInvocation* invocation)
{
    try {
        const Variant result = Perform(method, arguments);
        g_dbus_method_invocation_return_value(invocation, result.Get());
    } catch (const BusError& error) {
        g_dbus_method_invocation_return_dbus_error(invocation, error.Name().c_str(), error.what());
    } catch (const std::exception& error) {
        g_dbus_method_invocation_return_dbus_error(invocation, "org.freedesktop.DBus.Error.Failed",
                                                   error.what());
    }
}

MethodScript& Control::ScriptOf(const char* method)
{
    if (!m_daemon.HasMethod(method)) {
        throw BusError::InvalidArguments(std::string("the daemon has no method ") + method);
    }
    return m_faults.methods[method];
}

Variant Control::FailCall(GVariant* arguments)
{
    const char* method = nullptr;
    const char* name = nullptr;
    const char* message = nullptr;
    unsigned nth = 0;
    g_variant_get(arguments, "(&su&s&s)", &method, &nth, &name, &message);
    MethodScript& script = ScriptOf(method);
    if (nth == 0) {
        throw BusError::InvalidArguments("the next call is number 1");
    }
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
    ScriptOf(method).replies.push_back(BodyOf(body));
    return EmptyBody();
}

Variant Control::QueueSignal(GVariant* arguments)
{
    const char* method = nullptr;
    const char* signal = nullptr;
    const char* body = nullptr;
    g_variant_get(arguments, "(&s&s&s)", &method, &signal, &body);
    RequireSignalName(signal);
    ScriptOf(method).signals.push_back({signal, BodyOf(body)});
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
    m_bus.Emit({.name = signal}, BodyOf(body), count);
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
    m_bus.Emit({path, interface, signal}, BodyOf(body), count);
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
    if (error == 0) {
        throw BusError::InvalidArguments("0 is not the code of an error");
    }
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
    return Return(arguments);
}

} // namespace Simulator
