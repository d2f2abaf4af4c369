// SPDX-License-Identifier: BSD-3-Clause
#include "simulator/faults/control_contract.h"
#include "support/gobject.h"
#include "support/output.h"
#include "support/temporary_directory.h"

#include <emporium/testing/testing.h>

#include <gio/gio.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <sys/wait.h>

// Inside the kit's namespace, where the name Simulator is its class and not the simulator's namespace.
namespace Emporium::Testing {

namespace {

using Common::ErrorCode;
using Common::OperationStatus;
using Common::OperationType;
using testing::HasSubstr;
using testing::StartsWith;
using TestSupport::MessageOf;
using TestSupport::Owned;

constexpr std::chrono::milliseconds soon(50);

/// Calls the daemon by GDBus alone.
class RawClient
{
public:
    explicit RawClient(const std::string& address)
        : m_connection(g_dbus_connection_new_for_address_sync(
              address.c_str(),
              static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
              nullptr, nullptr, nullptr))
    {
    }

    /// Returns the reply in GVariant text format, or the name of the error and its message.
    std::string Call(const char* method, GVariant* arguments)
    {
        GError* raw = nullptr;
        const Owned<GVariant> reply(g_dbus_connection_call_sync(
            m_connection.get(), "org.velmora.Emporium", "/org/velmora/Emporium",
            "org.velmora.Emporium", method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, 90000,
            nullptr, &raw));
        const Owned<GError> error(raw);
        if (!reply) {
            return error->message;
        }
        char* const text = g_variant_print(reply.get(), TRUE);
        std::string result = text;
        g_free(text);
        return result;
    }

    std::string CallWithText(const char* method, const std::string& argument)
    {
        return Call(method, g_variant_new("(s)", argument.c_str()));
    }

    std::string Properties() { return Call("GetAllProperties", nullptr); }

private:
    Owned<GDBusConnection> m_connection;
};

std::vector<std::string> WordsAfter(const std::string& word, const std::string& text)
{
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string next; stream >> next;) {
        if (next == word && stream >> next) {
            words.push_back(next);
        }
    }
    return words;
}

SimulatorOptions BuiltSimulator()
{
    return {EMPORIUM_SIMULATOR, defaultDeadline};
}

class TestSimulator : public testing::Test
{
protected:
    std::string WriteProgram(const std::string& script) const
    {
        const auto path = session.Home() / "program";
        std::ofstream(path) << "#!/bin/sh\n" << script << "\n";
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }

    Session session;
};

class Daemon : public TestSimulator
{
protected:
    Simulator simulator{session, {}, BuiltSimulator()};
    RawClient client{session.Bus().Address()};
};

// --- the start ---

TEST_F(TestSimulator, ThatIsMissingIsNamed)
{
    const auto start = [&] {
        const Simulator simulator(session, {}, {"/nonexistent/simulator", soon});
    };
    EXPECT_EQ(MessageOf<Error>(start), "there is no simulator at /nonexistent/simulator");
    session.Variables().Set("EMPORIUM_SIMULATOR", "/nowhere");
    EXPECT_EQ(MessageOf<Error>([&] { const Simulator simulator(session); }),
              "there is no simulator at /nowhere, where EMPORIUM_SIMULATOR points");
}

TEST_F(TestSimulator, ThatIsInstalledNowhereIsAnErrorThatTellsHowToNameOne)
{
    session.Variables().Unset("EMPORIUM_SIMULATOR");
    session.Variables().Set("PATH", session.Home());
    if (std::filesystem::exists(EMPORIUM_INSTALLED_SIMULATOR)) {
        GTEST_SKIP() << "this machine has one installed";
    }
    EXPECT_EQ(MessageOf<Error>([&] { const Simulator simulator(session); }),
              "there is no simulator at " EMPORIUM_INSTALLED_SIMULATOR
              " and none in PATH; EMPORIUM_SIMULATOR may name one");
}

TEST_F(TestSimulator, IsFoundByTheEnvironmentVariable)
{
    session.Variables().Set("EMPORIUM_SIMULATOR", EMPORIUM_SIMULATOR);
    Simulator simulator(session);
    EXPECT_EQ(simulator.Calls(Method::Start).count, 0U);
}

TEST_F(TestSimulator, ThatTheTestNamesOverridesTheEnvironmentVariable)
{
    session.Variables().Set("EMPORIUM_SIMULATOR", "/nowhere");
    Simulator simulator(session, {}, BuiltSimulator());
    EXPECT_EQ(simulator.Calls(Method::Start).count, 0U);
}

TEST_F(TestSimulator, ThatRefusesItsArgumentsIsReportedWithItsMessage)
{
    const auto start = [&] {
        const Simulator simulator(session, {"--stepz", "1"}, BuiltSimulator());
    };
    const std::string message = MessageOf<Error>(start);
    EXPECT_THAT(message, StartsWith("the simulator does not start (exit status 2); its standard "
                                    "error:\n"));
    EXPECT_THAT(message, HasSubstr("unknown option --stepz; did you mean '--steps'?"));
}

TEST_F(TestSimulator, ThatNeverGetsReadyIsAnErrorAtTheDeadline)
{
    const std::string program = WriteProgram("echo 'almost there' >&2; exec sleep 600");
    const auto start = [&] { const Simulator simulator(session, {}, {program, soon}); };
    EXPECT_THAT(MessageOf<DeadlineExceeded>(start),
                StartsWith("the simulator did not start within 50 ms"));
}

TEST_F(TestSimulator, TakesTheArgumentsOfTheProgram)
{
    const Simulator simulator(session, {"--packages", "1"}, BuiltSimulator());
    RawClient client(session.Bus().Address());
    EXPECT_THAT(client.Properties(), HasSubstr("org.example.package0"));
}

TEST_F(TestSimulator, CopiesItsStandardErrorToThatOfTheTest)
{
    testing::internal::CaptureStderr();
    {
        Simulator simulator(session, {"--verbose"}, BuiltSimulator());
        simulator.Reset();
        EXPECT_THAT(simulator.Errors(), HasSubstr("Reset"));
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Reset"));
}

// --- the process ---

TEST_F(Daemon, ThatIsKilledIsReportedByTheNextVerb)
{
    simulator.Kill();
    EXPECT_EQ(MessageOf<Error>([&] { simulator.Reset(); }), "Reset(): the simulator has ended");
    EXPECT_EQ(simulator.Wait(), -1);
}

TEST_F(Daemon, ThatIsSuspendedIsAnErrorAtTheDeadlineAndWorksAfterwards)
{
    simulator.SetDeadline(soon);
    simulator.Suspend();
    EXPECT_EQ(MessageOf<DeadlineExceeded>([&] { simulator.Calls(Method::Start); }),
              "Calls('Start',) was not answered within 50 ms");
    simulator.SetDeadline(defaultDeadline);
    simulator.Resume();
    simulator.Reset();
}

TEST_F(Daemon, EndsDuringACall)
{
    simulator.ExitDuring(Method::Start);
    EXPECT_THAT(client.CallWithText("Start", "com.sample.notes"), HasSubstr("NoReply"));
    const int status = simulator.Wait();
    EXPECT_TRUE(WIFEXITED(status));
}

// --- verbs ---

TEST_F(Daemon, FailsTheNthCallWithACodeOrAName)
{
    simulator.FailCall(Method::Start, 2, ErrorCode::FileConflict, "a message");
    simulator.FailCall(Method::Start, 3, "org.example.Error.Other", "another");
    EXPECT_EQ(client.CallWithText("Start", "com.sample.notes"), "()");
    EXPECT_EQ(client.CallWithText("Start", "com.sample.notes"),
              "GDBus.Error:org.velmora.KVD.Error.FileConflict: a message");
    EXPECT_EQ(client.CallWithText("Start", "com.sample.notes"),
              "GDBus.Error:org.example.Error.Other: another");
    EXPECT_EQ(simulator.Calls(Method::Start).count, 3U);
    EXPECT_EQ(simulator.Calls(Method::Start).lastArgument, "com.sample.notes");
}

TEST_F(Daemon, FailsAnOperationWithACode)
{
    simulator.FailOperation("com.sample.notes", ErrorCode::UnauthorizedAccess);
    EXPECT_THAT(client.CallWithText("Remove", "com.sample.notes"), HasSubstr("com.sample.notes"));
    simulator.WaitForStatus("com.sample.notes", OperationStatus::Failed);
    EXPECT_THAT(client.Properties(), HasSubstr("'com.sample.notes', 2, 101, 13)"));
}

TEST_F(Daemon, InstallsThePackageFileOfTheSession)
{
    client.CallWithText("Install", session.PackageFile("org.example.clock", "2.5"));
    simulator.WaitForStatus("org.example.clock", OperationStatus::Succeeded);
    EXPECT_THAT(client.Properties(), HasSubstr("('org.example.clock', '2.5'"));
}

TEST_F(Daemon, RepliesWithARecordOrAnyBody)
{
    simulator.SetReply(Method::Install,
                       OperationRecord{"it's", "p", OperationType::Upgrade, OperationStatus::Failed,
                                       ErrorCode::Internal});
    simulator.SetReply(Method::Install, "('text', 5)");
    EXPECT_EQ(client.CallWithText("Install", "/path"), "((\"it's\", 'p', 1, 101, 2),)");
    EXPECT_EQ(client.CallWithText("Install", "/path"), "('text', 5)");
}

TEST_F(Daemon, ReportsTheRecordsThatAreAdded)
{
    simulator.AddPackage({"org.example.clock", "3", "group", "certificate"});
    simulator.RemovePackage("com.sample.notes", false);
    simulator.AddActiveOperation(
        {"u", "p", OperationType::Remove, static_cast<OperationStatus>(40)});
    simulator.AddCompletedOperation({"v", "q", OperationType::Install, OperationStatus::Succeeded});
    const std::string properties = client.Properties();
    EXPECT_THAT(properties, HasSubstr("('org.example.clock', '3', 'group', 'certificate', {})"));
    EXPECT_THAT(properties, Not(HasSubstr("com.sample.notes")));
    EXPECT_THAT(properties, HasSubstr("('u', 'p', 2, 40, 0)"));
    EXPECT_THAT(properties, HasSubstr("('v', 'q', 0, 100, 0)"));
}

TEST_F(Daemon, ReportsPropertiesOfAnyTypeOrOmitsThem)
{
    simulator.SetProperty(Property::Architecture, "uint16 5");
    simulator.DropProperty(Property::VeyraVersion);
    EXPECT_THAT(client.Properties(), HasSubstr("'Architecture': <uint16 5>"));
    EXPECT_THAT(client.Properties(), Not(HasSubstr("VeyraVersion")));
    simulator.RestoreProperty(Property::Architecture);
    simulator.Reset();
    EXPECT_THAT(client.Properties(), HasSubstr("'Architecture': <'aarch64'>"));
    EXPECT_THAT(client.Properties(), HasSubstr("VeyraVersion"));
}

TEST_F(Daemon, LeavesTheBusAndReturns)
{
    simulator.Vanish();
    EXPECT_FALSE(session.Bus().NameHasOwner("org.velmora.Emporium"));
    simulator.Return();
    EXPECT_TRUE(session.Bus().NameHasOwner("org.velmora.Emporium"));
}

TEST_F(Daemon, AwaitsCallsAndClients)
{
    client.Properties();
    simulator.WaitForClient();
    simulator.WaitForCall(Method::GetAllProperties);
}

TEST_F(Daemon, WaitsForWhatDoesNotHappenUntilTheDeadline)
{
    simulator.SetDeadline(soon);
    EXPECT_EQ(MessageOf<DeadlineExceeded>([&] { simulator.WaitForCall(Method::Install, 2); }),
              "WaitForCall('Install', uint32 2) was not answered within 50 ms");
}

TEST_F(Daemon, RefusesWithItsReason)
{
    EXPECT_EQ(
        MessageOf<Error>([&] { simulator.FailCall(Method::Install, 0, ErrorCode::Internal); }),
        "FailCall('Install', uint32 0, '2', '') was refused: the first call is number 1");
    EXPECT_THAT(MessageOf<Error>([&] { simulator.EmitSignal(Signal::PackageRemoved, "('one'"); }),
                HasSubstr("was refused: "));
    EXPECT_THAT(MessageOf<Error>([&] { simulator.SetProperty(Property::Packages, "]"); }),
                StartsWith("not a value in GVariant text format: ]: "));
    EXPECT_THAT(MessageOf<Error>([&] { simulator.RemovePackage("\xff"); }),
                StartsWith("D-Bus carries only UTF-8 text"));
    EXPECT_EQ(MessageOf<Error>([&] { simulator.Call("FailCal", ""); }),
              "the simulator has no verb FailCal");
    EXPECT_THAT(MessageOf<Error>([&] { simulator.Call("Vanish", "'text'"); }),
                StartsWith("Vanish takes arguments of the types (u), not ('text'): "));
}

TEST_F(Daemon, TakesAnyVerbAsText)
{
    client.CallWithText("Start", "com.sample.notes");
    EXPECT_EQ(simulator.Call("Calls", "'Start'"), "(uint32 1, 'com.sample.notes')");
    EXPECT_EQ(simulator.Call("Reset", ""), "()");
}

TEST_F(TestSimulator, HasAFunctionForEveryVerb)
{
    const auto recording = session.Home() / "recording";
    std::ofstream(recording)
        << R"({"type":"snapshot","time":"2026-01-31T12:00:00Z","architecture":"aarch64",)"
        << R"("version":"5.1.2","packages":[],"active":[],"completed":[]})" << '\n';
    testing::internal::CaptureStderr();
    std::set<std::string> called = {"WaitForCall", "WaitForStatus", "WaitForClient"}; // untraced
    {
        Simulator simulator(session, {"--verbose", "--replay", recording, "--paused"},
                            BuiltSimulator());
        simulator.FailCall(Method::Install, 1, ErrorCode::FileConflict);
        simulator.DelayReply(Method::Remove, std::chrono::milliseconds(1));
        simulator.SetReply(Method::Start, "()");
        simulator.QueueSignal(Method::Restart, Signal::PackageUpgraded, Body(PackageRecord{"id"}));
        simulator.Calls(Method::GetAllProperties);
        simulator.DropProperty(Property::Architecture);
        simulator.SetProperty(Property::Operations, "5");
        simulator.RestoreProperty(Property::CompletedOperations);
        simulator.EmitSignal(Signal::PackageInstalled, Body(PackageRecord{"id"}));
        simulator.EmitSignal(Signal::OperationStatusChanged, Body(OperationRecord{"u", "p"}));
        simulator.EmitSignalFrom("/", "a.b", "Signal", Body(std::string("text")));
        simulator.Vanish(std::chrono::hours(1));
        simulator.Return();
        simulator.FailOperation("", ErrorCode::Internal);
        simulator.AddPackage({"id"});
        simulator.RemovePackage("id");
        simulator.AddActiveOperation({"u", "p"});
        simulator.AddCompletedOperation({"u", "p"});
        simulator.StartReplay();
        simulator.ExitDuring(Method::Start);
        simulator.Reset();
        for (std::string& verb : WordsAfter("verb", simulator.Errors())) {
            called.insert(verb);
        }
    }
    testing::internal::GetCapturedStderr();
    std::set<std::string> all;
    for (const auto& verb : ::Simulator::ControlContract::allVerbs) {
        all.insert(verb.name);
    }
    EXPECT_EQ(called, all);
}

} // namespace

} // namespace Emporium::Testing
