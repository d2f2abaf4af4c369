// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/control.h"

#include "simulator/contract_xml.h"

#include <stdexcept>
#include <string_view>

namespace Simulator {
namespace {

constexpr const char* objectPath = "/org/velmora/Emporium/Simulator";
constexpr const char* interfaceName = "org.velmora.Emporium.Simulator";

Owned<GVariant> ParseValue(const char* text)
{
    std::string failure;
    Owned<GVariant> value(g_variant_parse(nullptr, text, nullptr, nullptr, Failure(failure)));
    if (!value) {
        throw std::invalid_argument("'" + std::string(text) + "' is no value: " + failure);
    }
    return value;
}

Owned<GVariant> ParseBody(const char* text)
{
    Owned<GVariant> body = ParseValue(text);
    if (!g_variant_is_of_type(body.get(), G_VARIANT_TYPE_TUPLE)) {
        throw std::invalid_argument("'" + std::string(text) + "' is no body: a body is a tuple");
    }
    return body;
}

void CheckSignal(const char* signal)
{
    if (!g_dbus_is_member_name(signal)) {
        throw std::invalid_argument("'" + std::string(signal) + "' is no name of a signal");
    }
}

} // namespace

const std::map<std::string, Control::Verb> Control::verbs = {
    {"FailCall", &Control::FailCall},
    {"AnswerCall", &Control::AnswerCall},
    {"DelayCall", &Control::DelayCall},
    {"SignalBeforeReply", &Control::SignalBeforeReply},
    {"ExitInCall", &Control::ExitInCall},
    {"Calls", &Control::Calls},
    {"Emit", &Control::Emit},
    {"OverrideProperty", &Control::OverrideProperty},
    {"DropProperty", &Control::DropProperty},
    {"FailOperation", &Control::FailOperation},
    {"Vanish", &Control::Vanish},
    {"Return", &Control::Return},
    {"Reset", &Control::Reset},
};

Control::Control(GDBusConnection* connection, Daemon& daemon)
    : m_connection(connection), m_daemon(daemon)
{
    static constexpr GDBusInterfaceVTable table{OnMethodCall, nullptr, nullptr, {}};
    std::string failure;
    const Owned<GDBusNodeInfo> node(g_dbus_node_info_new_for_xml(controlXml, Failure(failure)));
    m_registration = g_dbus_connection_register_object(
        connection, objectPath, g_dbus_node_info_lookup_interface(node.get(), interfaceName),
        &table, this, nullptr, Failure(failure));
    if (m_registration == 0) {
        throw std::runtime_error("cannot register the control object: " + failure);
    }
}

Control::~Control()
{
    g_dbus_connection_unregister_object(m_connection, m_registration);
}

void Control::OnMethodCall(GDBusConnection*, const char*, const char*, const char*,
                           const char* method, GVariant* arguments,
                           GDBusMethodInvocation* invocation, gpointer self)
{
    try {
        GVariant* const body = (static_cast<Control*>(self)->*verbs.at(method))(arguments);
        g_dbus_method_invocation_return_value(invocation, body);
    } catch (const std::exception& error) {
        g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR,
                                                      G_DBUS_ERROR_INVALID_ARGS, error.what());
    }
}

MethodFaults& Control::FaultsOf(const char* method)
{
    for (const std::string_view known :
         {"GetAllProperties", "Install", "Remove", "Start", "Restart"}) {
        if (known == method) {
            return m_daemon.GetFaults().methods[method];
        }
    }
    throw std::invalid_argument("the daemon has no method '" + std::string(method) + "'");
}

GVariant* Control::FailCall(GVariant* arguments)
{
    const char *method = nullptr, *name = nullptr, *message = nullptr;
    unsigned nth = 0;
    g_variant_get(arguments, "(&su&s&s)", &method, &nth, &name, &message);
    if (nth == 0 || !g_dbus_is_interface_name(name)) {
        throw std::invalid_argument("calls count from 1, and '" + std::string(name) +
                                    "' must be the name of a bus error");
    }
    FaultsOf(method).errors[nth] = {name, message};
    return nullptr;
}

GVariant* Control::AnswerCall(GVariant* arguments)
{
    const char *method = nullptr, *body = nullptr;
    g_variant_get(arguments, "(&s&s)", &method, &body);
    FaultsOf(method).answer = ParseBody(body);
    return nullptr;
}

GVariant* Control::DelayCall(GVariant* arguments)
{
    const char* method = nullptr;
    unsigned milliseconds = 0;
    g_variant_get(arguments, "(&su)", &method, &milliseconds);
    FaultsOf(method).delay = milliseconds;
    return nullptr;
}

GVariant* Control::SignalBeforeReply(GVariant* arguments)
{
    const char *method = nullptr, *signal = nullptr, *body = nullptr;
    g_variant_get(arguments, "(&s&s&s)", &method, &signal, &body);
    CheckSignal(signal);
    FaultsOf(method).signalsBeforeReply.emplace_back(signal, ParseBody(body));
    return nullptr;
}

GVariant* Control::ExitInCall(GVariant* arguments)
{
    const char* method = nullptr;
    g_variant_get(arguments, "(&s)", &method);
    FaultsOf(method).exit = true;
    return nullptr;
}

GVariant* Control::Calls(GVariant* arguments)
{
    const char* method = nullptr;
    g_variant_get(arguments, "(&s)", &method);
    FaultsOf(method);
    const Daemon::CallRecord& record = m_daemon.CallsOf(method);
    return g_variant_new("(us)", record.count, record.lastArgument.c_str());
}

GVariant* Control::Emit(GVariant* arguments)
{
    const char *signal = nullptr, *text = nullptr;
    unsigned count = 0;
    g_variant_get(arguments, "(&s&su)", &signal, &text, &count);
    CheckSignal(signal);
    const Owned<GVariant> body = ParseBody(text);
    for (unsigned number = 0; number < count; ++number) {
        m_daemon.Emit(signal, body.get());
    }
    return nullptr;
}

GVariant* Control::OverrideProperty(GVariant* arguments)
{
    const char *name = nullptr, *value = nullptr;
    g_variant_get(arguments, "(&s&s)", &name, &value);
    m_daemon.GetFaults().properties[name] = ParseValue(value);
    return nullptr;
}

GVariant* Control::DropProperty(GVariant* arguments)
{
    const char* name = nullptr;
    g_variant_get(arguments, "(&s)", &name);
    m_daemon.GetFaults().properties[name] = nullptr;
    return nullptr;
}

GVariant* Control::FailOperation(GVariant* arguments)
{
    int code = 0;
    g_variant_get(arguments, "(i)", &code);
    m_daemon.GetFaults().operationError = code;
    return nullptr;
}

GVariant* Control::Vanish(GVariant* arguments)
{
    unsigned milliseconds = 0;
    g_variant_get(arguments, "(u)", &milliseconds);
    m_daemon.ReleaseName();
    if (milliseconds > 0) {
        After(milliseconds, [this] { m_daemon.OwnName(); });
    }
    return nullptr;
}

GVariant* Control::Return(GVariant*)
{
    if (!m_daemon.OwnName()) {
        throw std::runtime_error("somebody else has the daemon's name");
    }
    return nullptr;
}

GVariant* Control::Reset(GVariant*)
{
    m_daemon.GetFaults() = Faults{};
    return nullptr;
}

} // namespace Simulator
