// SPDX-License-Identifier: BSD-3-Clause
//
// The daemon dies, is suspended and restarts at each point of each call.

#include "faults/bus/fault_fixture.h"

namespace {

using namespace Emporium;
using namespace TestSupport;

constexpr const char* unknown = "org.freedesktop.DBus.Error.ServiceUnknown";
constexpr const char* notProvided =
    "The name org.velmora.Emporium was not provided by any .service files";
constexpr const char* noReply = "org.freedesktop.DBus.Error.NoReply";
constexpr const char* disconnected =
    "Message recipient disconnected from message bus without replying";

class ADaemon : public FaultTest, public testing::WithParamInterface<DaemonCall>
{
protected:
    Outcome Call() { return GetParam().make(*connection); }
};

TEST_P(ADaemon, KilledBeforeACallFailsItAndTheNextDaemonAnswers)
{
    Connect();
    KillDaemon();
    EXPECT_EQ(Call(), GetParam().Failure(unknown, notProvided));
    ExpectIdle();
    EXPECT_EQ(follower->events, Strings());
    StartDaemon();
    EXPECT_EQ(Call(), "");
    ExpectFollowed();
    ExpectCleanEnd();
}

TEST_P(ADaemon, KilledAfterItReceivedTheRequestFailsTheCallAndLaterOnes)
{
    Connect();
    NeverReply(GetParam().method);
    const auto killer = WhenReceived(GetParam().method, [&] { KillDaemon(); });
    EXPECT_EQ(Call(), GetParam().Failure(noReply, disconnected));
    EXPECT_EQ(Call(), GetParam().Failure(unknown, notProvided));
    ExpectIdle();
    EXPECT_EQ(follower->events, Strings());
    ExpectCleanEnd();
}

TEST_P(ADaemon, KilledAfterItsReplyLeavesTheResultAndFailsLaterCalls)
{
    Connect();
    EXPECT_EQ(Call(), "");
    KillDaemon();
    EXPECT_EQ(Call(), GetParam().Failure(unknown, notProvided));
    ExpectIdle();
    ExpectCleanEnd();
}

TEST_P(ADaemon, RestartedDuringACallFailsItAndTheNextCallSucceeds)
{
    Connect();
    NeverReply(GetParam().method);
    {
        const auto killer = WhenReceived(GetParam().method, [&] { KillDaemon(); });
        EXPECT_EQ(Call(), GetParam().Failure(noReply, disconnected));
    }
    StartDaemon();
    EXPECT_EQ(Call(), "");
    ExpectFollowed();
    ExpectIdle();
    ExpectCleanEnd();
}

TEST_P(ADaemon, SuspendedDuringACallDelaysTheResult)
{
    Connect();
    simulator->DelayReply(GetParam().method, std::chrono::milliseconds(50));
    const auto pause = WhenReceived(GetParam().method, [&] {
        simulator->Suspend();
        simulator->Resume();
    });
    EXPECT_EQ(Call(), "");
    ExpectFollowed();
    ExpectCleanEnd();
}

INSTANTIATE_TEST_SUITE_P(EachCall, ADaemon, testing::ValuesIn(EveryCall()), NameOf);

class ASuspendedDaemon : public WithAShortTimeOut, public testing::WithParamInterface<DaemonCall>
{
protected:
    Outcome Call() { return GetParam().make(*connection); }
};

TEST_P(ASuspendedDaemon, FailsTheCallAtTheTimeOutAndAnswersLaterOnesWhenItResumes)
{
    Connect();
    const unsigned before = simulator->Calls(GetParam().method).count;
    simulator->Suspend();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Call(), GetParam().Expired());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    ExpectIdle();
    EXPECT_EQ(follower->events, Strings());
    simulator->Resume();
    Outcome outcome = Call();
    while (outcome == GetParam().Expired()) {
        outcome = Call(); // the machine is busy
    }
    EXPECT_EQ(outcome, "");
    EXPECT_GE(simulator->Calls(GetParam().method).count, before + 2)
        << "the daemon still receives the request that expired";
    ExpectFollowed();
    ExpectCleanEnd();
}

class AtTheStart : public WithAShortTimeOut
{
};

TEST_F(AtTheStart, ASuspendedDaemonFailsTheLoadAtTheTimeOutAndIsFollowedWhenItResumes)
{
    simulator->Suspend();
    const std::string log = OutputOf([&] { connection.emplace(); });
    EXPECT_EQ(log, "[E] Couldn't call org.velmora.Emporium.GetAllProperties dbus method "
                   "([org.freedesktop.DBus.Error.Timeout] Connection timed out)\n");
    follower.emplace(*connection);
    EXPECT_EQ(OutputOf([] { ExpectIdle(); }), "") << "the connection to the bus stays";
    simulator->Resume();
    ExpectFollowed();
}

TEST_F(AtTheStart, AnApplicationMayRunNoMainLoopForLongerThanTheTimeOut)
{
    while (!connection || connection->GetArchitecture().empty()) {
        connection.emplace(); // also if the load expires on a busy machine
    }
    follower.emplace(*connection);
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    EXPECT_EQ(OutputOf([] { ExpectIdle(); }), "") << "the connection to the bus stays";
    ExpectFollowed();
    ExpectCleanEnd();
}

class ALateReply : public WithAShortTimeOut
{
};

TEST_F(ALateReply, AnswersNoLaterCallAndTheSignalsOfItsOperationAreDelivered)
{
    Connect();
    simulator->Reset(); // so that the daemon performs what it receives
    simulator->Suspend();
    const Outcome expired =
        Create(*connection, Common::OperationType::Remove, "", "com.sample.notes");
    EXPECT_EQ(expired, "Couldn't call org.velmora.Emporium.Remove dbus method "
                       "([org.freedesktop.DBus.Error.Timeout] Connection timed out)");
    EXPECT_TRUE(connection->GetActiveOperations().empty());
    simulator->Resume();
    OutputOf([&] { RunUntil([&] { return follower->Has("removed com.sample.notes"); }); });
    EXPECT_TRUE(connection->GetPackage("com.sample.notes").HasError());
    // The daemon refuses a package that it no longer has; the late reply named an operation.
    EXPECT_TRUE(connection->Start("com.sample.notes").HasError());
}

INSTANTIATE_TEST_SUITE_P(EachCall, ASuspendedDaemon, testing::ValuesIn(EveryCall()), NameOf);

class ADaemonWhileNothingIsCalled : public FaultTest
{
};

TEST_F(ADaemonWhileNothingIsCalled, IsKilledAndNobodyIsCalled)
{
    Connect();
    KillDaemon();
    EXPECT_EQ(OutputOf([] { ExpectIdle(); }), "");
    EXPECT_EQ(follower->events, Strings());
    EXPECT_EQ(connection->GetPackageList().size(), 6U) << "the snapshot stays";
    ExpectCleanEnd();
}

TEST_F(ADaemonWhileNothingIsCalled, IsSuspendedAndItsLaterSignalsAreDelivered)
{
    Connect();
    simulator->Suspend();
    EXPECT_EQ(OutputOf([] { ExpectIdle(); }), "");
    simulator->Resume();
    ExpectFollowed();
    ExpectCleanEnd();
}

} // namespace
