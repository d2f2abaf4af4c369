// SPDX-License-Identifier: BSD-3-Clause
//
// The bus refuses and drops what exceeds its limits.

#include "bus/peer.h"
#include "faults/bus/descriptors.h"
#include "faults/bus/fault_fixture.h"

#include <algorithm>

namespace {

using namespace Emporium;
using namespace TestSupport;

/// One match for the owner of the daemon's name, and one for each signal.
constexpr unsigned neededMatches = 5;

class ABusThatRefusesAMatch : public FaultTest, public testing::WithParamInterface<unsigned>
{
protected:
    ABusThatRefusesAMatch() : FaultTest({{"max_match_rules_per_connection", GetParam()}}) {}
};

TEST_P(ABusThatRefusesAMatch, MakesTheConnectionInvalidWhichIsLogged)
{
    const auto descriptors = OpenDescriptors();
    const std::string log = OutputOf([&] { connection.emplace(); });
    EXPECT_EQ(log, "[E] Failed to create a proxy for the emporium dbus interface\n"
                   "[E] [org.freedesktop.DBus.Error.LimitsExceeded] Failed to register signal "
                   "handler (No buffer space available)\n");
    EXPECT_FALSE(static_cast<bool>(*connection));
    EXPECT_THROW(connection->GetPackageList(), std::logic_error);
    OutputOf([&] {
        for (int time = 0; time < 10; ++time) {
            connection.emplace();
        }
    });
    EXPECT_LT(OpenDescriptors(), descriptors + 5) << "each attempt leaves a descriptor open";
    ExpectIdle();
}

INSTANTIATE_TEST_SUITE_P(AfterSome, ABusThatRefusesAMatch, testing::Range(0U, neededMatches));

class ABusThatAllowsJustTheMatches : public FaultTest
{
protected:
    ABusThatAllowsJustTheMatches() : FaultTest({{"max_match_rules_per_connection", neededMatches}})
    {
    }
};

TEST_F(ABusThatAllowsJustTheMatches, ServesOneConnectionAndItsSuccessors)
{
    Connect();
    connection.emplace();
    follower.emplace(*connection);
    ExpectFollowed();
}

class ABusThatAllowsOnePendingReply : public WithAShortTimeOut
{
protected:
    ABusThatAllowsOnePendingReply() : WithAShortTimeOut({{"max_replies_per_connection", 1}}) {}
};

TEST_F(ABusThatAllowsOnePendingReply, RefusesCallsUntilTheDaemonAnswersTheOneThatExpired)
{
    Connect();
    simulator->Suspend();
    EXPECT_EQ(OutcomeOf(connection->Start("com.sample.notes")),
              "Couldn't call org.velmora.Emporium.Start dbus method (Connection timed out)");
    const Outcome refused = "Couldn't call org.velmora.Emporium.Start dbus method (The maximum "
                            "number of pending replies per connection has been reached)";
    EXPECT_EQ(OutcomeOf(connection->Start("com.sample.notes")), refused);
    ExpectIdle();
    simulator->Resume();
    while (connection->Start("com.sample.notes").HasError()) {
    }
    ExpectFollowed();
    ExpectCleanEnd();
}

/// A session bus keeps a thousand million bytes for a process that does not read.
class ABusWithASmallQueue : public FaultTest
{
protected:
    ABusWithASmallQueue() : FaultTest({{"max_outgoing_bytes", 20000}}) {}

    /// Installs packages while this process reads nothing. The bus keeps the signals of the first
    /// ones in the socket and in its queue.
    void InstallTooMany()
    {
        const std::string filling(4000, 'x');
        for (int number = 0; number < installed; ++number) {
            simulator->AddPackage({std::to_string(number), "1", filling});
        }
        Peer(bus.Address()).Settle(); // the bus has sent what it sends
    }

    /// The bus drops also the changes of the daemon's owner.
    void RestartUnnoticed()
    {
        InstallTooMany();
        KillDaemon();
        StartDaemon();
        RunWhatIsReady();
        follower->events.clear();
    }

    DaemonStateCallback Note()
    {
        return [this](DaemonState state) { states.push_back(state); };
    }

    static constexpr int installed = 300;
    std::vector<DaemonState> states;
};

TEST_F(ABusWithASmallQueue, DropsTheLastSignalsWithoutNoticeAndANewConnectionHasThePackages)
{
    Connect();
    const DaemonWatch watch(Note());
    InstallTooMany();
    EXPECT_EQ(OutputOf([] { RunWhatIsReady(); }), "");
    const std::size_t delivered = follower->events.size();
    EXPECT_GT(delivered, 0U);
    EXPECT_LT(delivered, static_cast<std::size_t>(installed));
    for (std::size_t number = 0; number < delivered; ++number) {
        EXPECT_EQ(follower->events[number], "installed " + std::to_string(number));
    }
    EXPECT_EQ(connection->GetPackageList().size(), 6 + delivered) << "the snapshot is stale";
    EXPECT_EQ(DaemonConnection().GetPackageList().size(), 6U + installed);
    EXPECT_TRUE(states.empty());
    ExpectFollowed();
    ExpectIdle();
    ExpectCleanEnd();
}

TEST_F(ABusWithASmallQueue, DropsARestartOfTheDaemonWhichTheNextReplyShows)
{
    Connect();
    const DaemonWatch watch(Note());
    RestartUnnoticed();
    EXPECT_TRUE(states.empty());
    EXPECT_EQ(OutcomeOf(connection->Start("com.sample.notes")), "");
    RunUntil([&] { return states.size() == 2; });
    EXPECT_EQ(states, (std::vector{DaemonState::Absent, DaemonState::Present}));
    ExpectFollowed();
    ExpectIdle();
    ExpectCleanEnd();
}

TEST_F(ABusWithASmallQueue, DropsARestartOfTheDaemonWhichTheNextRestartShows)
{
    Connect();
    const DaemonWatch watch(Note());
    RestartUnnoticed();
    while (states.empty()) {
        KillDaemon();
        StartDaemon();
        RunWhatIsReady(); // the bus may not have sent everything yet, and so drop another restart
    }
    RunUntil([&] { return watch.State() == DaemonState::Present; });
    EXPECT_EQ(states.front(), DaemonState::Absent);
    ExpectFollowed();
    ExpectIdle();
    ExpectCleanEnd();
}

} // namespace
