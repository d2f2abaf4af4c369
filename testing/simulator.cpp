// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/faults/control_contract.h"
#include "testing/bus_client.h"
#include "testing/child_process.h"
#include "testing/duration.h"
#include "testing/variant_text.h"

#include <emporium/testing/error.h>
#include <emporium/testing/session.h>
#include <emporium/testing/simulator.h>

#include <gio/gio.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>

namespace Emporium::Testing {

namespace Contract = ::Simulator::ControlContract;
namespace Verb = Contract::Verb;

namespace {

// The names are written here again, and not taken from the library's contract: a wrong one must not
// agree with itself. The simulator compares them with the introspection data.
const char* Name(Method method)
{
    switch (method) {
    case Method::GetAllProperties:
        return "GetAllProperties";
    case Method::Install:
        return "Install";
    case Method::Remove:
        return "Remove";
    case Method::Start:
        return "Start";
    case Method::Restart:
        return "Restart";
    }
    throw Error("not a method: " + std::to_string(static_cast<int>(method)));
}

const char* Name(Signal signal)
{
    switch (signal) {
    case Signal::PackageInstalled:
        return "PackageInstalled";
    case Signal::PackageUpgraded:
        return "PackageUpgraded";
    case Signal::PackageRemoved:
        return "PackageRemoved";
    case Signal::OperationStatusChanged:
        return "OperationStatusChanged";
    }
    throw Error("not a signal: " + std::to_string(static_cast<int>(signal)));
}

const char* Name(Property property)
{
    switch (property) {
    case Property::Architecture:
        return "Architecture";
    case Property::VeyraVersion:
        return "VeyraVersion";
    case Property::Packages:
        return "Packages";
    case Property::Operations:
        return "Operations";
    case Property::CompletedOperations:
        return "CompletedOperations";
    }
    throw Error("not a property: " + std::to_string(static_cast<int>(property)));
}

std::string ProgramInPath()
{
    const ::Simulator::TextPtr found(g_find_program_in_path("emporium-simulator"));
    return found ? found.get() : "";
}

/// Returns the path of the program, and says where it was looked for if it is not there.
std::string FindProgram(const std::string& given)
{
    const char* const variable = std::getenv("EMPORIUM_SIMULATOR");
    const bool isSet = variable != nullptr && *variable != '\0';
    if (!given.empty() || isSet) {
        std::string program = given.empty() ? variable : given;
        if (access(program.c_str(), X_OK) != 0) {
            throw Error("there is no simulator at " + program +
                        (given.empty() ? ", where EMPORIUM_SIMULATOR points" : ""));
        }
        return program;
    }
    std::string program = EMPORIUM_INSTALLED_SIMULATOR;
    if (access(program.c_str(), X_OK) != 0) {
        program = ProgramInPath();
    }
    if (program.empty()) {
        throw Error("there is no simulator at " EMPORIUM_INSTALLED_SIMULATOR
                    " and none in PATH; EMPORIUM_SIMULATOR may name one");
    }
    return program;
}

std::vector<std::string> CommandLine(const SimulatorOptions& options,
                                     const std::vector<std::string>& arguments)
{
    std::vector<std::string> command = {FindProgram(options.program), "--step-ms", "0"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

std::string TextOfStatus(int status)
{
    return WIFSIGNALED(status) ? "signal " + std::to_string(WTERMSIG(status))
                               : "exit status " + std::to_string(WEXITSTATUS(status));
}

VariantPtr ParseArguments(const std::string& verb, const std::string& text)
{
    const auto* const shape =
        std::find_if(std::begin(Contract::allVerbs), std::end(Contract::allVerbs),
                     [&verb](const Contract::VerbShape& other) { return other.name == verb; });
    if (shape == std::end(Contract::allVerbs)) {
        throw Error("the simulator has no verb " + verb);
    }
    const std::string type = "(" + std::string(shape->arguments) + ")";
    const std::unique_ptr<GVariantType, ::Simulator::Releaser<g_variant_type_free>> expected(
        g_variant_type_new(type.c_str()));
    const char* const comma = g_variant_type_n_items(expected.get()) == 1 ? "," : "";
    const std::string tuple = "(" + std::string(Utf8(text)) + comma + ")";
    ::Simulator::ErrorSlot error;
    VariantPtr arguments(g_variant_parse(expected.get(), tuple.c_str(), nullptr, nullptr, &error));
    if (!arguments) {
        throw Error(verb + " takes arguments of the types " + type + ", not (" + text +
                    "): " + error.Message());
    }
    return arguments;
}

VariantPtr ParseValue(const std::string& text)
{
    ::Simulator::ErrorSlot error;
    VariantPtr value(g_variant_parse(nullptr, Utf8(text), nullptr, nullptr, &error));
    if (!value) {
        throw Error("not a value in GVariant text format: " + text + ": " + error.Message());
    }
    return value;
}

} // namespace

struct Simulator::Private
{
    Private(const std::string& address, const std::vector<std::string>& arguments,
            const SimulatorOptions& options)
        : deadline(options.deadline), process(CommandLine(options, arguments)),
          bus(WaitForStart(), address, deadline)
    {
    }
    Private(const Private&) = delete;
    Private& operator=(const Private&) = delete;
    ~Private()
    {
        process.End(SIGTERM);
        std::cerr << process.Errors() << std::flush;
    }

    /// Connects only after the process is ready, so that its messages explain a bus that is not there.
    struct Bus
    {
        Bus(bool, const std::string& address, std::chrono::milliseconds deadline)
            : client(address, deadline),
              control{OwnerOfControl(client), Contract::objectPath, Contract::interfaceName}
        {
        }

        static std::string OwnerOfControl(const BusClient& client)
        {
            // The unique name, so that this object controls its own process also where another
            // simulator takes over the name.
            const VariantPtr reply =
                client.CallBus("GetNameOwner", g_variant_new("(s)", Contract::busName));
            const char* name = nullptr;
            g_variant_get(reply.get(), "(&s)", &name);
            return name;
        }

        BusClient client;
        BusObject control;
    };

    bool WaitForStart()
    {
        std::string line;
        try {
            line = process.ReadLine(deadline);
        } catch (const DeadlineExceeded&) {
            throw DeadlineExceeded("the simulator did not start within " + Text(deadline) +
                                   Explanation());
        }
        if (line != "ready") {
            throw Error("the simulator does not start (" + TextOfStatus(process.Wait()) + ")" +
                        Explanation());
        }
        return true;
    }

    /// What the process has said.
    std::string Explanation() const
    {
        const std::string errors = process.Errors();
        return errors.empty() ? "" : "; its standard error:\n" + errors;
    }

    /// Calls a verb. Takes the reference to the arguments, floating or not.
    VariantPtr Call(const char* verb, GVariant* floating)
    {
        const VariantPtr arguments(floating != nullptr ? g_variant_take_ref(floating) : nullptr);
        ErrorPtr error;
        VariantPtr reply = bus.client.Call(bus.control, verb, arguments.get(), error);
        if (!reply) {
            Fail(verb, arguments.get(), error.get());
        }
        return reply;
    }

    [[noreturn]] void Fail(const char* verb, GVariant* arguments, GError* error) const
    {
        const std::string call =
            verb + (arguments != nullptr ? TextOf(g_variant_ref(arguments)) : std::string("()"));
        if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE) {
            throw DeadlineExceeded(call + " was not answered within " + Text(deadline));
        }
        const bool absent =
            g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) != FALSE ||
            g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER) != FALSE ||
            g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) != FALSE;
        if (absent || process.HasEnded()) {
            throw Error(call + ": the simulator has ended" + Explanation());
        }
        const bool refused = g_dbus_error_strip_remote_error(error) != FALSE;
        throw Error(call + (refused ? " was refused: " : " failed: ") + error->message);
    }

    std::chrono::milliseconds deadline;
    ChildProcess process;
    Bus bus;
};

Simulator::Simulator(const Session& session, const std::vector<std::string>& arguments,
                     const SimulatorOptions& options)
    : Simulator(session.Bus().Address(), arguments, options)
{
}

Simulator::Simulator(const std::string& busAddress, const std::vector<std::string>& arguments,
                     const SimulatorOptions& options)
    : m_private(std::make_unique<Private>(busAddress, arguments, options))
{
}

Simulator::~Simulator() = default;

void Simulator::SetDeadline(std::chrono::milliseconds deadline)
{
    m_private->deadline = deadline;
    m_private->bus.client.SetDeadline(deadline);
}

void Simulator::Stop()
{
    m_private->process.End(SIGTERM);
}

void Simulator::Kill()
{
    m_private->process.End(SIGKILL);
}

void Simulator::Suspend()
{
    m_private->process.Suspend();
}

void Simulator::Resume()
{
    m_private->process.Resume();
}

int Simulator::Wait()
{
    return m_private->process.Wait();
}

std::string Simulator::Errors() const
{
    return m_private->process.Errors();
}

void Simulator::FailCall(Method method, unsigned nth, Common::ErrorCode error,
                         const std::string& message)
{
    FailCall(method, nth, std::to_string(static_cast<int>(error)), message);
}

void Simulator::FailCall(Method method, unsigned nth, const std::string& errorName,
                         const std::string& message)
{
    m_private->Call(Verb::failCall,
                    g_variant_new("(suss)", Name(method), nth, Utf8(errorName), Utf8(message)));
}

void Simulator::DelayReply(Method method, std::chrono::milliseconds delay)
{
    m_private->Call(Verb::delayReply, g_variant_new("(su)", Name(method), Milliseconds(delay)));
}

void Simulator::SetReply(Method method, const std::string& body)
{
    m_private->Call(Verb::setReply, g_variant_new("(ss)", Name(method), Utf8(body)));
}

void Simulator::SetReply(Method method, const OperationRecord& operation)
{
    SetReply(method, Body(operation));
}

void Simulator::QueueSignal(Method method, Signal signal, const std::string& body)
{
    m_private->Call(Verb::queueSignal,
                    g_variant_new("(sss)", Name(method), Name(signal), Utf8(body)));
}

void Simulator::ExitDuring(Method method)
{
    m_private->Call(Verb::exitDuring, g_variant_new("(s)", Name(method)));
}

MethodCalls Simulator::Calls(Method method)
{
    const VariantPtr reply = m_private->Call(Verb::calls, g_variant_new("(s)", Name(method)));
    guint32 count = 0;
    const char* argument = nullptr;
    g_variant_get(reply.get(), "(u&s)", &count, &argument);
    return {count, argument};
}

void Simulator::DropProperty(Property property)
{
    m_private->Call(Verb::dropProperty, g_variant_new("(s)", Name(property)));
}

void Simulator::SetProperty(Property property, const std::string& value)
{
    const VariantPtr parsed = ParseValue(value);
    m_private->Call(Verb::setProperty, g_variant_new("(sv)", Name(property), parsed.get()));
}

void Simulator::RestoreProperty(Property property)
{
    m_private->Call(Verb::restoreProperty, g_variant_new("(s)", Name(property)));
}

void Simulator::EmitSignal(Signal signal, const std::string& body, unsigned count)
{
    m_private->Call(Verb::emitSignal, g_variant_new("(ssu)", Name(signal), Utf8(body), count));
}

void Simulator::EmitSignalFrom(const std::string& path, const std::string& interface,
                               const std::string& signal, const std::string& body, unsigned count)
{
    m_private->Call(Verb::emitSignalFrom, g_variant_new("(ssssu)", Utf8(path), Utf8(interface),
                                                        Utf8(signal), Utf8(body), count));
}

void Simulator::AddPackage(const PackageRecord& package, bool announce)
{
    m_private->Call(Verb::addPackage,
                    g_variant_new("(@(ssssa{sv})b)", ToVariant(package), announce));
}

void Simulator::RemovePackage(const std::string& id, bool announce)
{
    m_private->Call(Verb::removePackage, g_variant_new("(sb)", Utf8(id), announce));
}

void Simulator::AddActiveOperation(const OperationRecord& operation, bool announce)
{
    m_private->Call(Verb::addActiveOperation,
                    g_variant_new("(@(ssiii)b)", ToVariant(operation), announce));
}

void Simulator::AddCompletedOperation(const OperationRecord& operation, bool announce)
{
    m_private->Call(Verb::addCompletedOperation,
                    g_variant_new("(@(ssiii)b)", ToVariant(operation), announce));
}

void Simulator::Vanish(std::chrono::milliseconds duration)
{
    m_private->Call(Verb::vanish, g_variant_new("(u)", Milliseconds(duration)));
}

void Simulator::Return()
{
    m_private->Call(Verb::return_, nullptr);
}

void Simulator::FailOperation(const std::string& packageID, Common::ErrorCode error)
{
    m_private->Call(Verb::failOperation,
                    g_variant_new("(si)", Utf8(packageID), static_cast<std::int32_t>(error)));
}

void Simulator::Reset()
{
    m_private->Call(Verb::reset, nullptr);
}

void Simulator::StartReplay()
{
    m_private->Call(Verb::startReplay, nullptr);
}

void Simulator::WaitForCall(Method method, unsigned count)
{
    m_private->Call(Verb::waitForCall, g_variant_new("(su)", Name(method), count));
}

void Simulator::WaitForStatus(const std::string& packageID, Common::OperationStatus status)
{
    m_private->Call(Verb::waitForStatus,
                    g_variant_new("(si)", Utf8(packageID), static_cast<std::int32_t>(status)));
}

void Simulator::WaitForClient()
{
    m_private->Call(Verb::waitForClient, nullptr);
}

std::string Simulator::Call(const std::string& verb, const std::string& arguments)
{
    const VariantPtr parsed = ParseArguments(verb, arguments);
    const VariantPtr reply = m_private->Call(verb.c_str(), g_variant_ref(parsed.get()));
    return TextOf(g_variant_ref(reply.get()));
}

} // namespace Emporium::Testing
