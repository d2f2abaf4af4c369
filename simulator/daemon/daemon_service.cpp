// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/daemon/daemon_service.h"

#include "simulator/bus/bus_error.h"
#include "simulator/bus/message_body.h"
#include "simulator/bus/variant_builder.h"
#include "simulator/introspection.h"
#include "simulator/print_error.h"
#include "simulator/timer.h"
#include "simulator/trace.h"

#include <map>
#include <memory>
#include <string_view>
#include <utility>

namespace Simulator {

namespace {

std::string FirstString(GVariant* arguments)
{
    if (g_variant_n_children(arguments) == 0) {
        return {};
    }
    const char* text = nullptr;
    g_variant_get(arguments, "(&s)", &text);
    return text;
}

Variant OperationList(const std::vector<Operation>& operations)
{
    ArrayBuilder list(Contract::operationRecordArray);
    for (const Operation& operation : operations) {
        list.Add(ToVariant(operation));
    }
    return list.Finish();
}

// Sends the reply as a bare message: GIO's functions for replies refuse a body whose signature
// differs from the introspection data.
void Send(GDBusConnection* connection, GDBusMessage* message)
{
    const char* name = g_dbus_message_get_error_name(message);
    Trace::Print(name != nullptr ? "error" : "reply", name != nullptr ? name : "",
                 g_dbus_message_get_body(message));
    ErrorSlot error;
    if (g_dbus_connection_send_message(connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       &error) == FALSE) {
        PrintError("cannot send a reply: " + error.Message());
    }
}

/// A bus closes the connection of a sender whose array is larger, and the reply that lists everything is
/// one array.
void RequireBusSize(GDBusMessage* reply)
{
    constexpr gsize largestArray = 1U << 26;
    constexpr gsize largestGrowth = 4; // of a value, when it is encoded for the bus
    if (g_variant_get_size(g_dbus_message_get_body(reply)) < largestArray / largestGrowth) {
        return;
    }
    gsize size = 0;
    const std::unique_ptr<guchar, decltype(&g_free)> encoded(
        g_dbus_message_to_blob(reply, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr), g_free);
    if (encoded == nullptr || size > largestArray) {
        throw BusError("org.freedesktop.DBus.Error.LimitsExceeded",
                       "the reply is larger than the " + std::to_string(largestArray) +
                           " bytes that the bus allows");
    }
}

} // namespace

DaemonService::DaemonService(BusConnection& bus, Store& store, OperationQueue& operations,
                             InjectedFaults& faults, Progress& progress, std::function<void()> exit)
    : m_bus(bus), m_store(store), m_operations(operations), m_faults(faults), m_progress(progress),
      m_exit(std::move(exit)),
      m_object(bus, Contract::objectPath, daemonIntrospection,
               [this](const char* method, GVariant* arguments, GDBusMethodInvocation* invocation) {
                   Call(method, arguments, invocation);
               })
{
}

void DaemonService::Call(const char* method, GVariant* arguments, GDBusMethodInvocation* invocation)
{
    const ObjectPtr<GDBusMethodInvocation> owned(invocation);
    MethodScript& script = m_faults.methods[method];
    ++script.calls;
    Trace::Print("call", method, arguments);
    script.lastArgument = FirstString(arguments);
    if (script.exits) {
        m_exit();
        return;
    }
    const std::vector<QueuedSignal> signals = std::exchange(script.signals, {});
    GDBusMessage* call = g_dbus_method_invocation_get_message(invocation);
    std::shared_ptr<GDBusMessage> reply = Answer(method, script, call);
    auto send = [this, signals, reply] {
        EmitQueued(signals);
        Send(m_bus.Get(), reply.get());
    };
    if (script.delay == 0) {
        send();
    } else {
        RunLater(script.delay, send);
    }
    if (method == std::string_view(Contract::Method::getAllProperties)) {
        m_progress.AddClient(m_bus.Get(), g_dbus_method_invocation_get_sender(invocation));
    }
    m_progress.Notify();
}

ObjectPtr<GDBusMessage> DaemonService::Answer(const std::string& method, MethodScript& script,
                                              GDBusMessage* call)
{
    try {
        if (auto error = script.errors.extract(script.calls)) {
            throw BusError(error.mapped());
        }
        Variant body;
        if (script.replies.empty()) {
            body = Perform(method, script.lastArgument);
        } else {
            body = script.replies.front();
            script.replies.pop_front();
        }
        ObjectPtr<GDBusMessage> reply(g_dbus_message_new_method_reply(call));
        g_dbus_message_set_body(reply.get(), body.Get());
        RequireBusSize(reply.get());
        return reply;
    } catch (const BusError& error) {
        return ObjectPtr<GDBusMessage>(
            g_dbus_message_new_method_error_literal(call, error.Name().c_str(), error.what()));
    }
}

Variant DaemonService::Perform(const std::string& method, const std::string& argument)
{
    if (method == Contract::Method::getAllProperties) {
        return Body(Properties());
    }
    if (method == Contract::Method::install) {
        return Body(ToVariant(m_operations.Install(argument)));
    }
    if (method == Contract::Method::remove) {
        return Body(ToVariant(m_operations.Remove(argument)));
    }
    RequirePackage(argument);
    return EmptyBody();
}

Variant DaemonService::Properties()
{
    if (m_snapshotTaken) {
        m_snapshotTaken();
    }
    std::map<std::string, Variant> values = {
        {Contract::Property::architecture, ToVariant(m_store.Lists().architecture)},
        {Contract::Property::veyraVersion, ToVariant(m_store.Lists().version)},
        {Contract::Property::packages, m_store.PackagesValue()},
        {Contract::Property::operations, OperationList(m_store.Lists().active)},
        {Contract::Property::completedOperations, OperationList(m_store.Lists().completed)}};
    for (const auto& [key, value] : m_faults.properties) {
        values[key] = value;
    }

    ArrayBuilder dictionary(Contract::dictionary);
    for (const auto& [key, value] : values) {
        if (value) {
            dictionary.Add(Variant(g_variant_new_dict_entry(g_variant_new_string(key.c_str()),
                                                            g_variant_new_variant(value.Get()))));
        }
    }
    return dictionary.Finish();
}

void DaemonService::RequirePackage(const std::string& id) const
{
    if (m_store.FindPackage(id) == nullptr) {
        throw BusError(Common::ErrorCode::PackageNotExist);
    }
}

void DaemonService::EmitQueued(const std::vector<QueuedSignal>& signals)
{
    for (const QueuedSignal& signal : signals) {
        try {
            m_bus.Emit({.name = signal.name}, signal.body);
        } catch (const BusError& error) {
            PrintError(error.what());
        }
    }
}

} // namespace Simulator
