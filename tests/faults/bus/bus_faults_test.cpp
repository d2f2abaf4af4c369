// SPDX-License-Identifier: BSD-3-Clause
//
// The bus dies, is suspended and restarts at each point of each call.

#include "bus/peer.h"
#include "faults/bus/fault_fixture.h"

#include <algorithm>

namespace {

using namespace Emporium;
using namespace TestSupport;

class ABus : public FaultTest, public testing::WithParamInterface<DaemonCall>
{
protected:
    Outcome Call() { return GetParam().make(*connection); }

    static Outcome Lost()
    {
        return GetParam().Failure("org.freedesktop.DBus.Error.Disconnected",
                                  "Connection reset by peer");
    }

    /// Expects that nothing works any more except queries, and that the loss is logged once.
    void ExpectLostForGood()
    {
        const Outcome gone =
            GetParam().Failure("System.Error.ENOTCONN", "Transport endpoint is not connected");
        EXPECT_EQ(Call(), gone);
        const std::string log = OutputOf([] { ExpectIdle(); });
        EXPECT_EQ(log.rfind("[E] Failed to process dbus connection events (", 0), 0U) << log;
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
        EXPECT_EQ(Call(), gone);
        EXPECT_EQ(DaemonWatch(nullptr).State(), DaemonState::Disconnected);
        EXPECT_EQ(connection->GetPackageList().size(), 6U);
        EXPECT_EQ(follower->events, Strings());
        ExpectCleanEnd();
    }
};

TEST_P(ABus, KilledBeforeACallFailsItAndEveryLaterOne)
{
    Connect();
    bus.Kill();
    EXPECT_EQ(Call(), Lost());
    ExpectLostForGood();
}

TEST_P(ABus, KilledAfterTheDaemonReceivedTheRequestFailsTheCallAndEveryLaterOne)
{
    Connect();
    NeverReply(GetParam().method);
    const auto killer = WhenReceived(GetParam().method, [&] { bus.Kill(); });
    EXPECT_EQ(Call(), Lost());
    ExpectLostForGood();
}

TEST_P(ABus, KilledAfterTheReplyLeavesTheResultAndFailsEveryLaterCall)
{
    Connect();
    EXPECT_EQ(Call(), "");
    bus.Kill();
    EXPECT_EQ(Call(), Lost());
    ExpectLostForGood();
}

TEST_P(ABus, KilledDuringACallAndStartedAgainIsNotReconnected)
{
    Connect();
    NeverReply(GetParam().method);
    {
        const auto killer = WhenReceived(GetParam().method, [&] { bus.Kill(); });
        EXPECT_EQ(Call(), Lost());
    }
    bus.Start();
    StartDaemon();
    ExpectLostForGood();
}

TEST_P(ABus, SuspendedDuringACallDelaysTheResult)
{
    Connect();
    simulator->DelayReply(GetParam().method, std::chrono::milliseconds(50));
    const auto pause = WhenReceived(GetParam().method, [&] {
        bus.Suspend();
        bus.Resume();
    });
    EXPECT_EQ(Call(), "");
    ExpectFollowed();
    ExpectCleanEnd();
}

INSTANTIATE_TEST_SUITE_P(EachCall, ABus, testing::ValuesIn(EveryCall()), NameOf);

class ASuspendedBus : public WithAShortTimeOut, public testing::WithParamInterface<DaemonCall>
{
protected:
    Outcome Call() { return GetParam().make(*connection); }
};

TEST_P(ASuspendedBus, FailsTheCallAtTheTimeOutAndCarriesLaterOnesWhenItResumes)
{
    Connect();
    bus.Suspend();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Call(), GetParam().Expired());
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    ExpectIdle();
    EXPECT_EQ(follower->events, Strings());
    bus.Resume();
    Outcome outcome = Call();
    while (outcome == GetParam().Expired()) {
        outcome = Call(); // the machine is busy
    }
    EXPECT_EQ(outcome, "");
    ExpectFollowed();
    ExpectCleanEnd();
}

INSTANTIATE_TEST_SUITE_P(EachCall, ASuspendedBus, testing::ValuesIn(EveryCall()), NameOf);

class ABusWhileNothingIsCalled : public FaultTest
{
};

TEST_F(ABusWhileNothingIsCalled, IsKilledWhichIsLoggedOnce)
{
    Connect();
    bus.Kill();
    const std::string log = OutputOf([] { ExpectIdle(); });
    EXPECT_EQ(log, "[E] Failed to process dbus connection events (Failed to process bus requests "
                   "(Connection reset by peer))\n");
    EXPECT_EQ(follower->events, Strings());
    ExpectCleanEnd();
}

TEST_F(ABusWhileNothingIsCalled, IsSuspendedAndItsLaterSignalsAreDelivered)
{
    Connect();
    bus.Suspend();
    EXPECT_EQ(OutputOf([] { ExpectIdle(); }), "");
    bus.Resume();
    ExpectFollowed();
    ExpectCleanEnd();
}

TEST_F(ABusWhileNothingIsCalled, IsKilledAndTheSignalsThatItSentBeforeAreDelivered)
{
    Connect();
    SendMarker(50);
    Peer(bus.Address()).Settle();
    bus.Kill();
    OutputOf([] { ExpectIdle(); });
    EXPECT_EQ(follower->events.size(), 50U);
    ExpectCleanEnd();
}

TEST_F(ABusWhileNothingIsCalled, IsKilledAndANewConnectionIsValidButEmpty)
{
    Connect();
    bus.Kill();
    OutputOf([] { ExpectIdle(); });
    bus.Start();
    StartDaemon();
    std::optional<DaemonConnection> later;
    const std::string log = OutputOf([&] { later.emplace(); });
    EXPECT_EQ(log, "[E] Couldn't call org.velmora.Emporium.GetAllProperties dbus method "
                   "([System.Error.ENOTCONN] Transport endpoint is not connected)\n");
    EXPECT_TRUE(static_cast<bool>(*later));
    EXPECT_TRUE(later->GetPackageList().empty());
}

} // namespace
