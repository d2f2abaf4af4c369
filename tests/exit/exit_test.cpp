// SPDX-License-Identifier: BSD-3-Clause
#include "bus/session_test.h"

#include "testing/child_process.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace {

using namespace TestSupport;
using Emporium::Testing::ChildProcess;
using Emporium::Testing::Method;
using Emporium::Testing::Property;
using Emporium::Testing::Signal;

/// Each test runs one of the applications of exit_cases.cpp to its end.
class Exit : public SessionTest
{
protected:
    Exit()
    {
        simulator.SetProperty(Property::CompletedOperations, "[('completed', 'p', 0, 100, 0)]");
    }

    /// Starts the application with its standard error in a file, which must stay empty.
    void Begin(const std::string& name)
    {
        setenv("EXIT_CASE", name.c_str(), 1);
        BeginProgram(std::string("'") + EMPORIUM_EXIT_CASES + "'");
    }

    /// In a forked process, newer versions of the bus library free nothing of the parent's connection.
    static void LeaveLeaksToTheBusLibrary() { setenv("ASAN_OPTIONS", "detect_leaks=0", 1); }

    void BeginProgram(const std::string& command)
    {
        const std::string fifo = (directory.Path() / "input").string();
        application.emplace(Strings{"/bin/sh", "-c",
                                    "mkfifo '" + fifo + "'; exec " + command + " 2>'" +
                                        ErrorPath() + "' <>'" + fifo + "'"});
    }

    /// Loads an object that uses the library, unloads it, and loads it again.
    void ExpectThatThePluginWorksTwice(const std::string& argument)
    {
        BeginProgram(std::string("'") + EMPORIUM_PLUGIN_HOST + "' '" + EMPORIUM_PLUGIN + "' " +
                     argument);
        ReadUntil("unloaded");
        EXPECT_EQ(output, "packages\nplugin unloaded\nlibrary loaded\nunloaded\n");
        simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
        Continue();
        ReadUntil("packages again");
        simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.weather',)");
        Continue();
        ExpectOneConnectionAndItsCache();
        EXPECT_NE(output.find("\n1 events\n"), std::string::npos) << output;
    }

    void ReadUntil(const std::string& line)
    {
        std::string read;
        do {
            read = application->ReadLine();
            output += read + "\n";
        } while (!read.empty() && read != line);
        ASSERT_EQ(read, line) << output << Errors();
    }

    /// Sends a line of input to an application that waits for one.
    void Continue() { std::ofstream(directory.Path() / "input") << "continue\n"; }

    /// Waits for the last process that holds the output.
    void ReadToTheEnd()
    {
        for (std::string line = application->ReadLine(); !line.empty();
             line = application->ReadLine()) {
            output += line + "\n";
        }
    }

    void ExpectCleanEnd()
    {
        ReadToTheEnd();
        const int status = application->Wait();
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << output << Errors();
        EXPECT_EQ(Errors(), "");
    }

    /// Expects that the snapshot was read once and the cache was written.
    void ExpectOneConnectionAndItsCache()
    {
        ExpectCleanEnd();
        EXPECT_EQ(simulator.Calls(Method::GetAllProperties).count, 1U)
            << "no connection is created at exit";
        EXPECT_EQ(CacheEntries(), (Strings{"completed"}));
    }

    std::string ErrorPath() const { return (directory.Path() / "errors").string(); }

    std::string Errors() const
    {
        std::ifstream file(ErrorPath());
        return std::string(std::istreambuf_iterator<char>(file), {});
    }

    std::filesystem::path CacheDirectory() const
    {
        return session.CacheHome() / "org.example.test" / "emporium-api" / "completed-operations";
    }

    Strings CacheEntries() const
    {
        Strings entries;
        if (std::filesystem::exists(CacheDirectory())) {
            for (const auto& entry : std::filesystem::directory_iterator(CacheDirectory())) {
                entries.push_back(entry.path().filename().string());
            }
        }
        return entries;
    }

    Emporium::Testing::Simulator simulator{session};
    std::optional<ChildProcess> application;
    std::string output;
};

TEST_F(Exit, WithHandlesConstructedBeforeTheLibrarysStatics)
{
    Begin("old handles assigned in main");
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, WithASharedConnectionAsAGlobal)
{
    Begin("shared connection as a global");
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, WithAnOwnConnectionAndItsSubscriptionAsGlobalsCreatesNoSharedOne)
{
    Begin("own connection as a global");
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, WithASubscriptionOfAnOwnConnectionInAnOldGlobalCreatesNoSharedOne)
{
    Begin("subscription of an own connection in an old global");
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, WithAnOwnConnectionWithoutASubscriptionCreatesNoSharedOne)
{
    Begin("an own connection without a subscription");
    ExpectOneConnectionAndItsCache();
    EXPECT_EQ(output, "end of main\n");
}

TEST_F(Exit, WithAHandleOfAnIDCreatesNoConnection)
{
    Begin("a handle of an ID without a connection");
    ExpectCleanEnd();
    EXPECT_EQ(output, "end of main\n");
    EXPECT_EQ(simulator.Calls(Method::GetAllProperties).count, 0U);
    EXPECT_FALSE(std::filesystem::exists(CacheDirectory()));
}

TEST_F(Exit, OnTheThreadOfTheConnectionCreatesNoOther)
{
    Begin("a thread that connects and exits");
    ExpectOneConnectionAndItsCache();
    EXPECT_EQ(output, "");
}

TEST_F(Exit, TheEndOfAWorkerThreadIsNotTheEndOfTheProcess)
{
    Begin("a worker thread that ends");
    ExpectCleanEnd();
    EXPECT_EQ(output, "valid\nend of main\n");
    EXPECT_EQ(simulator.Calls(Method::GetAllProperties).count, 2U);
}

TEST_F(Exit, TheCompletedOperationsAreStoredOnceSoAFailureWarnsOnce)
{
    std::ofstream(session.CacheHome() / "org.example.test") << "in the way";
    Begin("old handles assigned in main");
    ExpectCleanEnd();
    const std::string warning =
        "end of main\n[W] Couldn't create cache directory to store completed operations (";
    EXPECT_EQ(output.rfind(warning, 0), 0U) << output;
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 2) << output;
}

TEST_F(Exit, WithACopyThatIsNeverDestroyedStillWritesTheCache)
{
    Begin("a copy that is never destroyed");
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, FromInsideACallback)
{
    Begin("exit in a callback");
    while (application && simulator.Calls(Method::GetAllProperties).count == 0) {
    }
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, AConnectionRequestedDuringTheExitIsTheExistingOne)
{
    Begin("requested during the exit");
    ExpectOneConnectionAndItsCache();
    const std::string packages = output.substr(0, output.find(' '));
    EXPECT_EQ(output, packages + " packages\nend of main\n" + packages + " packages at exit\n");
}

TEST_F(Exit, AConnectionRequestedAfterTheLibrarysStaticsIsInvalid)
{
    Begin("requested after the library's statics");
    ExpectOneConnectionAndItsCache();
    EXPECT_EQ(output, "end of main\n");
}

TEST_F(Exit, WithACallbackThatHoldsAHandleOfItsOwnConnection)
{
    Begin("a callback owns a handle of its connection");
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, AChildThatCallsUnderscoreExitWritesNothing)
{
    Begin("a child that calls _exit");
    ReadUntil("child exited");
    EXPECT_FALSE(std::filesystem::exists(CacheDirectory()));
    Continue();
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, AChildThatCallsExitWritesAndPrintsNothing)
{
    LeaveLeaksToTheBusLibrary();
    Begin("a child that calls exit");
    ReadUntil("child exited");
    EXPECT_EQ(output, "child exited\n");
    EXPECT_FALSE(std::filesystem::exists(CacheDirectory()));
    Continue();
    ExpectOneConnectionAndItsCache();
    EXPECT_EQ(output, "child exited\nend of main\n");
}

TEST_F(Exit, AChildThatDestroysAnOwnConnectionWritesNothing)
{
    Begin("a child that destroys an own connection");
    ReadUntil("child exited");
    EXPECT_FALSE(std::filesystem::exists(CacheDirectory()));
    Continue();
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, AChildAnswersFromTheSnapshotFailsCallsAndTakesNoEventFromItsParent)
{
    Begin("a child that uses the connection");
    ReadUntil("subscribed");
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    Continue();
    ReadUntil("child exited");
    // The cause of the failed call depends on the version of the bus library.
    EXPECT_THAT(output,
                testing::MatchesRegex("subscribed\n"
                                      "found\n"
                                      "Couldn't call org.velmora.Emporium.Start dbus method .*\n"
                                      "\\[E\\] Failed to process dbus connection events .*\n"
                                      "no event in the child\n"
                                      "child exited\n"));
    ExpectOneConnectionAndItsCache();
    EXPECT_EQ(simulator.Calls(Method::Start).count, 0U);
    EXPECT_NE(output.find("an event in the parent\n"), std::string::npos);
}

/// daemon() ends the process that made the connection without destroying it.
TEST_F(Exit, AConnectionFromBeforeACallOfDaemonStillWritesTheCache)
{
    LeaveLeaksToTheBusLibrary();
    Begin("a daemon that was connected before");
    application->Wait();
    EXPECT_FALSE(std::filesystem::exists(CacheDirectory()));
    Continue();
    ReadUntil("end of main");
    ReadToTheEnd();
    EXPECT_EQ(output, "end of main\n");
    EXPECT_EQ(Errors(), "");
    EXPECT_EQ(CacheEntries(), (Strings{"completed"}));
}

TEST_F(Exit, AConnectionFromAfterACallOfDaemonWorks)
{
    Begin("a daemon that connects");
    ReadUntil("subscribed");
    simulator.EmitSignal(Signal::PackageRemoved, "('com.sample.notes',)");
    ReadToTheEnd();
    EXPECT_EQ(Errors(), "");
    EXPECT_EQ(CacheEntries(), (Strings{"completed"}));
}

TEST_F(Exit, ByUnderscoreExitWritesNothing)
{
    Begin("_exit");
    ExpectCleanEnd();
    EXPECT_FALSE(std::filesystem::exists(CacheDirectory()));
    EXPECT_EQ(output, "");
}

TEST_F(Exit, ByQuickExitWritesNothing)
{
    Begin("quick_exit");
    ExpectCleanEnd();
    EXPECT_FALSE(std::filesystem::exists(CacheDirectory()));
    EXPECT_EQ(output, "");
}

TEST_F(Exit, OnAnotherThread)
{
    Begin("exit on another thread");
    ExpectOneConnectionAndItsCache();
}

TEST_F(Exit, AfterAnObjectThatUsedTheLibraryWasUnloadedAndLoadedAgain)
{
    ExpectThatThePluginWorksTwice("");
}

TEST_F(Exit, AfterAnObjectThatUsedTheLibraryOnAnotherThreadWasUnloadedAndLoadedAgain)
{
    ExpectThatThePluginWorksTwice("thread");
}

TEST_F(Exit, ALogLineToAClosedPipeEndsTheApplicationAsAnyOtherOutput)
{
    Begin("a log line to a closed pipe");
    const int status = application->Wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGPIPE) << status;
    EXPECT_EQ(Errors(), "");
}

TEST_F(Exit, ALogLineToAClosedPipeIsLostWhereSigpipeIsIgnored)
{
    Begin("a log line to a closed pipe where SIGPIPE is ignored");
    ExpectCleanEnd();
    EXPECT_EQ(simulator.Calls(Method::GetAllProperties).count, 1U);
}

TEST_F(Exit, AfterALostBusPrintsNothingOnStandardError)
{
    Begin("the bus is lost");
    ReadUntil("up");
    bus.Stop();
    Continue();
    ExpectCleanEnd();
    EXPECT_NE(output.find("[E] Failed to process dbus connection events ("), std::string::npos);
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 3) << output;
    EXPECT_EQ(CacheEntries(), (Strings{"completed"}));
}

} // namespace
