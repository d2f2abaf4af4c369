// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/daemon.h"

#include "common/errors/error_table.h"
#include "simulator/contract_xml.h"
#include "simulator/package_file.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace Simulator {

using Common::ErrorCode;
using Common::OperationStatus;
using Common::OperationType;

namespace {

constexpr const char* objectPath = "/org/velmora/Emporium";
constexpr const char* interfaceName = "org.velmora.Emporium";

ErrorAnswer ErrorOf(ErrorCode code)
{
    const Common::ErrorTableRow& row = Common::FindError(static_cast<std::int32_t>(code));
    return {std::string(row.dbusName), std::string(row.message)};
}

std::string ArgumentOf(GVariant* arguments)
{
    if (g_variant_n_children(arguments) == 0) {
        return {};
    }
    const char* text = nullptr;
    g_variant_get_child(arguments, 0, "&s", &text);
    return text;
}

Owned<GVariant> Sink(GVariant* floating)
{
    return Owned<GVariant>(g_variant_ref_sink(floating));
}

/// Asks the bus for something about the daemon's name; the bus's numerical answer.
unsigned AskBus(GDBusConnection* connection, const char* method, GVariant* arguments)
{
    std::string failure;
    const Owned<GVariant> reply(g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
        arguments, G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, Failure(failure)));
    if (!reply) {
        throw std::runtime_error("cannot reach the bus: " + failure);
    }
    unsigned answer = 0;
    g_variant_get(reply.get(), "(u)", &answer);
    return answer;
}

} // namespace

Daemon::Daemon(GDBusConnection* connection, State state, Pace pace)
    : m_connection(connection), m_state(std::move(state)), m_pace(pace)
{
    static constexpr GDBusInterfaceVTable table{OnMethodCall, nullptr, nullptr, {}};
    std::string failure;
    const Owned<GDBusNodeInfo> node(g_dbus_node_info_new_for_xml(contractXml, Failure(failure)));
    m_registration = g_dbus_connection_register_object(
        connection, objectPath, g_dbus_node_info_lookup_interface(node.get(), interfaceName),
        &table, this, nullptr, Failure(failure));
    if (m_registration == 0) {
        throw std::runtime_error("cannot register the daemon's object: " + failure);
    }
}

Daemon::~Daemon()
{
    g_dbus_connection_unregister_object(m_connection, m_registration);
}

bool Daemon::OwnName()
{
    constexpr unsigned doNotQueue = 4;
    constexpr unsigned primaryOwner = 1;
    constexpr unsigned alreadyOwner = 4;
    const unsigned answer =
        AskBus(m_connection, "RequestName", g_variant_new("(su)", busName, doNotQueue));
    return answer == primaryOwner || answer == alreadyOwner;
}

void Daemon::ReleaseName()
{
    AskBus(m_connection, "ReleaseName", g_variant_new("(s)", busName));
}

void Daemon::Emit(const char* signal, GVariant* body)
{
    g_dbus_connection_emit_signal(m_connection, nullptr, objectPath, interfaceName, signal, body,
                                  nullptr);
}

void Daemon::OnMethodCall(GDBusConnection*, const char*, const char*, const char*,
                          const char* method, GVariant* arguments,
                          GDBusMethodInvocation* invocation, gpointer self)
{
    static_cast<Daemon*>(self)->Handle(method, arguments, invocation);
}

void Daemon::Handle(const std::string& method, GVariant* arguments,
                    GDBusMethodInvocation* invocation)
{
    const std::string argument = ArgumentOf(arguments);
    CallRecord& record = m_calls[method];
    ++record.count;
    record.lastArgument = argument;

    MethodFaults& faults = m_faults.methods[method];
    if (faults.exit) {
        std::_Exit(EXIT_SUCCESS);
    }
    auto reply = std::make_shared<Reply>(Answer(method, argument, faults));
    auto signals = std::make_shared<decltype(faults.signalsBeforeReply)>(
        std::exchange(faults.signalsBeforeReply, {}));
    const auto send = [this, invocation, reply, signals] {
        for (const auto& [signal, body] : *signals) {
            Emit(signal.c_str(), body.get());
        }
        Send(invocation, *reply);
    };
    if (const unsigned delay = std::exchange(faults.delay, 0); delay > 0) {
        After(delay, send);
    } else {
        send();
    }
}

Daemon::Reply Daemon::Answer(const std::string& method, const std::string& argument,
                             MethodFaults& faults)
{
    std::map<unsigned, ErrorAnswer> later;
    std::optional<ErrorAnswer> error;
    for (auto& [nth, answer] : faults.errors) {
        if (nth == 1) {
            error = std::move(answer);
        } else {
            later.emplace(nth - 1, std::move(answer));
        }
    }
    faults.errors = std::move(later);
    if (error) {
        return {nullptr, std::move(error)};
    }
    if (faults.answer) {
        return {std::exchange(faults.answer, nullptr), std::nullopt};
    }
    return Perform(method, argument);
}

Daemon::Reply Daemon::Perform(const std::string& method, const std::string& argument)
{
    if (method == "GetAllProperties") {
        return {Sink(AllProperties()), std::nullopt};
    }
    if (method == "Install") {
        return Install(argument);
    }
    if (method == "Remove") {
        return Remove(argument);
    }
    return Launch(argument);
}

void Daemon::Send(GDBusMethodInvocation* invocation, const Reply& reply)
{
    if (reply.error) {
        g_dbus_method_invocation_return_dbus_error(invocation, reply.error->name.c_str(),
                                                   reply.error->message.c_str());
        return;
    }
    // As a message of its own: the invocation would hold the body against the contract, and what a
    // test asks for may be just what the contract forbids.
    const Owned<GDBusMessage> message(
        g_dbus_message_new_method_reply(g_dbus_method_invocation_get_message(invocation)));
    if (reply.body) {
        g_dbus_message_set_body(message.get(), reply.body.get());
    }
    g_dbus_connection_send_message(m_connection, message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                   nullptr, nullptr);
    g_object_unref(invocation);
}

GVariant* Daemon::AllProperties()
{
    std::map<std::string, GVariant*> properties = {
        {"Architecture", g_variant_new_string(m_state.architecture.c_str())},
        {"VeyraVersion", g_variant_new_string(m_state.veyraVersion.c_str())},
        {"Packages", ToVariant(m_state.packages)},
        {"Operations", ToVariant(m_state.active)},
        {"CompletedOperations", ToVariant(m_state.completed)},
    };
    GVariantBuilder dictionary;
    g_variant_builder_init(&dictionary, G_VARIANT_TYPE("a{sv}"));
    for (const auto& [name, value] : properties) {
        const Owned<GVariant> real = Sink(value);
        const auto overridden = m_faults.properties.find(name);
        GVariant* const sent =
            overridden == m_faults.properties.end() ? real.get() : overridden->second.get();
        if (sent != nullptr) {
            g_variant_builder_add(&dictionary, "{sv}", name.c_str(), sent);
        }
    }
    return g_variant_new("(a{sv})", &dictionary);
}

Daemon::Reply Daemon::Install(const std::string& path)
{
    const auto file = ReadPackageFile(path);
    if (const ErrorCode* const error = std::get_if<ErrorCode>(&file)) {
        return {nullptr, ErrorOf(*error)};
    }
    const PackageFile& package = std::get<PackageFile>(file);
    if (const ErrorCode error = CheckPackage(package, m_state); error != ErrorCode::None) {
        return {nullptr, ErrorOf(error)};
    }
    const bool installed = m_state.FindPackage(package.id) != nullptr;
    return Queue({package.id, package.version, package.subgroup, package.certificateID},
                 installed ? OperationType::Upgrade : OperationType::Install);
}

Daemon::Reply Daemon::Remove(const std::string& packageID)
{
    const PackageRecord* const package = m_state.FindPackage(packageID);
    if (package == nullptr) {
        return {nullptr, ErrorOf(ErrorCode::PackageNotExist)};
    }
    return Queue(*package, OperationType::Remove);
}

Daemon::Reply Daemon::Launch(const std::string& packageID)
{
    if (m_state.FindPackage(packageID) == nullptr) {
        return {nullptr, ErrorOf(ErrorCode::PackageNotExist)};
    }
    return {};
}

Daemon::Reply Daemon::Queue(const PackageRecord& package, OperationType type)
{
    const Owned<char> uuid(g_uuid_string_random());
    const OperationRecord operation{uuid.get(), package.id, type, OperationStatus::None,
                                    ErrorCode::None};
    m_state.active.push_back(operation);
    m_queue.push_back({uuid.get(), package, std::exchange(m_faults.operationError, std::nullopt)});
    if (m_queue.size() == 1) {
        ScheduleStep(1);
    }
    return {Sink(g_variant_new("(@(ssiii))", ToVariant(operation))), std::nullopt};
}

void Daemon::ScheduleStep(unsigned step)
{
    After(m_pace.stepMilliseconds, [this, step] {
        if (step <= m_pace.steps) {
            StepOperation(step);
        } else {
            FinishOperation();
        }
    });
}

void Daemon::StepOperation(unsigned step)
{
    OperationRecord& operation = m_state.active.front();
    operation.status = static_cast<OperationStatus>(100 * step / (m_pace.steps + 1));
    Emit("OperationStatusChanged", g_variant_new("(@(ssiii))", ToVariant(operation)));
    ScheduleStep(step + 1);
}

void Daemon::FinishOperation()
{
    const QueuedOperation queued = std::move(m_queue.front());
    m_queue.pop_front();
    OperationRecord operation = m_state.active.front();
    m_state.active.erase(m_state.active.begin());
    if (queued.error) {
        operation.status = OperationStatus::Failed;
        operation.errorCode = static_cast<ErrorCode>(*queued.error);
    } else {
        operation.status = OperationStatus::Succeeded;
        ApplyOperation(queued.package, operation.type);
    }
    m_state.completed.push_back(operation);
    Emit("OperationStatusChanged", g_variant_new("(@(ssiii))", ToVariant(operation)));
    if (!m_queue.empty()) {
        ScheduleStep(1);
    }
}

void Daemon::ApplyOperation(const PackageRecord& package, OperationType type)
{
    if (type == OperationType::Remove) {
        std::erase_if(m_state.packages,
                      [&](const PackageRecord& other) { return other.id == package.id; });
        Emit("PackageRemoved", g_variant_new("(s)", package.id.c_str()));
        return;
    }
    PackageRecord* const installed = m_state.FindPackage(package.id);
    const bool isUpgrade = installed != nullptr;
    if (isUpgrade) {
        *installed = package;
    } else {
        m_state.packages.push_back(package);
    }
    Emit(isUpgrade ? "PackageUpgraded" : "PackageInstalled",
         g_variant_new("(@(ssssa{sv}))", ToVariant(package)));
}

} // namespace Simulator
