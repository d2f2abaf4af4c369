// SPDX-License-Identifier: BSD-3-Clause
#include "control.h"

#include "introspection.h"
#include "package_rules.h"

#include <stdexcept>

namespace Simulator {

namespace {

Variant Nothing()
{
    return Variant(g_variant_new_tuple(nullptr, 0));
}

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

// A name without dots is the short name of an error of the model.
BusError ErrorOf(const std::string& name, const std::string& message)
{
    const bool isShort = name.find('.') == std::string::npos;
    const std::string whole = (isShort ? "org.velmora.KVD.Error." : "") + name;
    const Common::ErrorTableRow& row = Common::FindError(whole);
    if (isShort && row.dbusName != whole) {
        throw BusError::InvalidArguments("no such error: " + name);
    }
    if (g_dbus_is_interface_name(whole.c_str()) == FALSE) {
        throw BusError::InvalidArguments("not an error name: " + name);
    }
    return {whole, message.empty() ? std::string(row.message) : message};
}

} // namespace

Control::Control(Bus& bus, Store& store, OperationQueue& operations, Faults& faults,
                 const DaemonService& daemon)
    : m_bus(bus), m_store(store), m_operations(operations), m_faults(faults), m_daemon(daemon),
      m_object(bus, controlPath, controlIntrospection,
               [this](const char* method, GVariant* arguments, GDBusMethodInvocation* invocation) {
                   Call(method, arguments, invocation);
               })
{
}

const std::map<std::string, Control::Verb>& Control::Verbs()
{
    static const std::map<std::string, Verb> verbs = {
        {"FailCall", &Control::FailCall},
        {"DelayReply", &Control::DelayReply},
        {"SetReply", &Control::SetReply},
        {"QueueSignal", &Control::QueueSignal},
        {"ExitDuring", &Control::ExitDuring},
        {"Calls", &Control::Calls},
        {"DropProperty", &Control::DropProperty},
        {"SetProperty", &Control::SetProperty},
        {"RestoreProperty", &Control::RestoreProperty},
        {"EmitSignal", &Control::EmitSignal},
        {"EmitSignalFrom", &Control::EmitSignalFrom},
        {"Vanish", &Control::Vanish},
        {"Return", &Control::Return},
        {"FailOperation", &Control::FailOperation},
        {"AddPackage", &Control::AddPackage},
        {"RemovePackage", &Control::RemovePackage},
        {"AddActiveOperation", &Control::AddActiveOperation},
        {"AddCompletedOperation", &Control::AddCompletedOperation},
        {"Reset", &Control::Reset}};
    return verbs;
}

Variant Control::Perform(const std::string& verb, GVariant* arguments)
{
    return (this->*Verbs().at(verb))(arguments);
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
    script.failures.insert_or_assign(script.calls + nth, ErrorOf(name, message));
    return Nothing();
}

Variant Control::DelayReply(GVariant* arguments)
{
    const char* method = nullptr;
    unsigned milliseconds = 0;
    g_variant_get(arguments, "(&su)", &method, &milliseconds);
    ScriptOf(method).delay = milliseconds;
    return Nothing();
}

Variant Control::SetReply(GVariant* arguments)
{
    const char* method = nullptr;
    const char* body = nullptr;
    g_variant_get(arguments, "(&s&s)", &method, &body);
    ScriptOf(method).replies.push_back(BodyOf(body));
    return Nothing();
}

Variant Control::QueueSignal(GVariant* arguments)
{
    const char* method = nullptr;
    const char* signal = nullptr;
    const char* body = nullptr;
    g_variant_get(arguments, "(&s&s&s)", &method, &signal, &body);
    RequireSignalName(signal);
    ScriptOf(method).signals.push_back({signal, BodyOf(body)});
    return Nothing();
}

Variant Control::ExitDuring(GVariant* arguments)
{
    const char* method = nullptr;
    g_variant_get(arguments, "(&s)", &method);
    ScriptOf(method).exits = true;
    return Nothing();
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
    return Nothing();
}

Variant Control::SetProperty(GVariant* arguments)
{
    const char* key = nullptr;
    GVariant* value = nullptr;
    g_variant_get(arguments, "(&sv)", &key, &value);
    m_faults.properties[key] = Variant(value);
    return Nothing();
}

Variant Control::RestoreProperty(GVariant* arguments)
{
    const char* key = nullptr;
    g_variant_get(arguments, "(&s)", &key);
    m_faults.properties.erase(key);
    return Nothing();
}

Variant Control::EmitSignal(GVariant* arguments)
{
    const char* signal = nullptr;
    const char* body = nullptr;
    unsigned count = 0;
    g_variant_get(arguments, "(&s&su)", &signal, &body, &count);
    m_bus.Emit({.name = signal}, BodyOf(body), count);
    return Nothing();
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
    return Nothing();
}

Variant Control::Vanish(GVariant* arguments)
{
    unsigned milliseconds = 0;
    g_variant_get(arguments, "(u)", &milliseconds);
    m_bus.Release(daemonName);
    m_return.Stop();
    if (milliseconds != 0) {
        m_return.Start(milliseconds, [this] {
            try {
                m_bus.Own(daemonName);
            } catch (const std::exception& error) {
                g_printerr("emporium-simulator: cannot come back: %s\n", error.what());
            }
        });
    }
    return Nothing();
}

Variant Control::Return(GVariant*)
{
    m_return.Stop();
    m_bus.Own(daemonName);
    return Nothing();
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
    return Nothing();
}

Variant Control::AddPackage(GVariant* arguments)
{
    GVariant* value = nullptr;
    gboolean announce = FALSE;
    g_variant_get(arguments, "(@(ssssa{sv})b)", &value, &announce);
    const Variant package(value);
    const bool upgraded = m_store.PutPackage(PackageFromVariant(package.Get()));
    if (announce != FALSE) {
        m_bus.Emit({.name = upgraded ? "PackageUpgraded" : "PackageInstalled"}, Body(package));
    }
    return Nothing();
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
        m_bus.Emit({.name = "PackageRemoved"}, Body(Variant(g_variant_new_string(id))));
    }
    return Nothing();
}

Variant Control::AddActiveOperation(GVariant* arguments)
{
    GVariant* value = nullptr;
    gboolean announce = FALSE;
    g_variant_get(arguments, "(@(ssiii)b)", &value, &announce);
    const Variant operation(value);
    m_store.PutActive(OperationFromVariant(operation.Get()));
    if (announce != FALSE) {
        m_bus.Emit({.name = "OperationStatusChanged"}, Body(operation));
    }
    return Nothing();
}

Variant Control::AddCompletedOperation(GVariant* arguments)
{
    GVariant* value = nullptr;
    gboolean announce = FALSE;
    g_variant_get(arguments, "(@(ssiii)b)", &value, &announce);
    const Variant operation(value);
    m_store.PutCompleted(OperationFromVariant(operation.Get()));
    if (announce != FALSE) {
        m_bus.Emit({.name = "OperationStatusChanged"}, Body(operation));
    }
    return Nothing();
}

Variant Control::Reset(GVariant* arguments)
{
    m_operations.Clear();
    m_store.Reset();
    m_faults = {};
    return Return(arguments);
}

} // namespace Simulator
